#pragma once
// PNG, JPEG, GIF and BMP jobs: decoded by the library, which refuses images
// over its pixel budget before allocating them, scaled and placed on the
// label as the job's print-scaling says (a pixel is a dot), and sent as one
// label.

#include <pappl/pappl.h>

namespace orvante::app {

// PAPPL's MIME filter callback from image/png or image/jpeg to the printer's format.
bool printImage(pappl_job_t* job, pappl_device_t* device, void* context);

}  // namespace orvante::app
