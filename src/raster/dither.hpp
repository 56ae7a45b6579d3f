#pragma once
// The padded raster of an image by any of the dithering modes. The image is
// drawn over white first, as the printer's paper is.

#include <orvante/dither.hpp>
#include <orvante/image.hpp>

#include "raster_formats.hpp"

namespace orvante::raster {

// Threshold mode gives exactly the threshold packer's raster with the white
// fill; the other modes use the threshold as their middle grey.
PaddedRaster ditheredRaster(const Image& image, Dither mode, double threshold = 128);

}  // namespace orvante::raster
