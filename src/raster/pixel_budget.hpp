#pragma once
// Internal: the size limit of images the library draws itself.

#include <string_view>

namespace orvante::raster {

struct PixelSize {
  int width = 0;
  int height = 0;
};

// The pixels needed for width x height points at scale 1: each side rounded
// up, 0 for a side that is not positive. Throws orvante::Exception
// "ImageTooLarge" when that exceeds kMaxRenderedPixels or kMaxRenderedSide,
// so nothing that large is ever allocated.
PixelSize budgetedPixels(double width, double height, std::string_view what);

}  // namespace orvante::raster
