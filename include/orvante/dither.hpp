#pragma once
// How a colour or grey image becomes the printer's one-bit raster.

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

enum class Dither {
  // Each dot dark when its grey is below the threshold (128 by default):
  // crisp text, logos and barcodes; photos turn into blobs.
  Threshold,
  // Error diffusion: photos and grey shades keep their tone.
  FloydSteinberg,
  Atkinson,  // diffuses three quarters of the error: more contrast
  // Bayer matrices: a regular pattern that survives scaling.
  Ordered4x4,
  Ordered8x8,
  // Pure black and white pixels, and every pixel that borders one, are
  // thresholded; only the shaded areas are diffused, so barcodes and text
  // stay exact inside a photo label.
  EdgeAware,
};

}  // namespace orvante

ORVANTE_API_END
