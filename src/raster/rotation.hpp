#pragma once
// Internal: turning an image about its centre.

#include <orvante/image.hpp>

namespace orvante::raster {

// The image turned clockwise by `degrees` (as it appears, rows running
// down). At exactly 90 or 270 the sides swap; at any other angle the canvas
// keeps the unrotated size and the corners are clipped. Pixels are copied,
// never blended, so no partial alpha appears.
Image rotateImage(const Image& image, double degrees);

}  // namespace orvante::raster
