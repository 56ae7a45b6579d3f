#pragma once
// PNG, JPEG, GIF and BMP jobs: decoded by the library, which refuses images
// over its pixel budget before allocating them, then placed on the label by
// PAPPL's image scaling and printed through the raster callbacks.

#include <pappl/pappl.h>

#include <orvante/image.hpp>

namespace orvante::app {

// PAPPL's MIME filter callback from image/png or image/jpeg to the printer's format.
bool printImage(pappl_job_t* job, pappl_device_t* device, void* context);

// The image's pixels as grey (0 black to 255 white), laid on white paper.
Bytes greyOnWhite(const Image& image);

}  // namespace orvante::app
