#pragma once
// Internal: images to and from Cairo surfaces, and drawing a new image.

#include <cairo.h>

#include <functional>
#include <memory>

#include <orvante/image.hpp>

namespace orvante::raster {

struct SurfaceReleaser {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using Surface = std::unique_ptr<cairo_surface_t, SurfaceReleaser>;

// An ARGB32 surface with the image's pixels.
Surface surfaceOf(const Image& image);

// The surface's pixels as an image; bytes are taken as they are, so colours
// brighter than their alpha survive.
Image imageOf(cairo_surface_t* surface);

// A size in points or pixels as a pixel count for a new image: truncated
// toward zero, with NaN and negatives as 0 and anything past int's range as
// its largest value (which the pixel budget then refuses).
int pixelsOf(double size);

// A new transparent image of the size, drawn by the function. Throws
// std::bad_alloc past kMaxRenderedPixels or kMaxRenderedSide.
Image drawImage(int width, int height, const std::function<void(cairo_t*)>& draw);

// Draws the image stretched into (0, 0, width, height) of the context.
void drawStretched(cairo_t* context, const Image& image, double width, double height);

}  // namespace orvante::raster
