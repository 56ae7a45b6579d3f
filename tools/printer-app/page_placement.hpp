#pragma once
// Where a page goes on the label under IPP "print-scaling": auto (and
// auto-fit) shrinks a larger page to fit and centres a smaller one as it
// is; fit scales to fit either way; fill scales to cover the label and cuts
// off what passes it; none centres the page as it is, cut off if larger.
// Each keeps the page's aspect ratio.

#include <pappl/pappl.h>

#include <orvante/image.hpp>

namespace orvante::app {

struct PagePlacement {
  int width = 0;  // the page drawn at this size, in dots
  int height = 0;
  int x = 0;  // its top left corner on the label; negative where cut off
  int y = 0;
};

PagePlacement placePage(double pageWidthDots, double pageHeightDots, int labelWidth,
                        int labelHeight, pappl_scaling_t scaling);

// The part of the drawn page that lies on the label, and its place there.
struct VisiblePage {
  Image image;
  int x = 0;
  int y = 0;
};
VisiblePage visiblePart(const Image& drawn, const PagePlacement& placement, int labelWidth,
                        int labelHeight);

}  // namespace orvante::app
