#include "rotation.hpp"

#include "cairo_image.hpp"
#include "pixel_budget.hpp"

namespace orvante::raster {

namespace {

// Degrees to radians: multiplied first, then divided, so results match the
// published rounding bit for bit.
double radians(double degrees) {
  return degrees * 3.141592653589793 / 180;
}

}  // namespace

Image rotateImage(const Image& image, double degrees) {
  const Size source = image.size();
  const bool quarterTurn = degrees == 90.0 || degrees == 270.0;
  const Size turned = quarterTurn ? Size{source.height, source.width} : source;
  const auto pixels = budgetedPixels(turned.width, turned.height, "a rotated image");
  if (image.empty()) return Image::transparent(pixels.width, pixels.height);
  const Surface surface = surfaceOf(image);
  return drawImage(pixels.width, pixels.height, [&](cairo_t* cairo) {
    // Cairo's y axis points down, so a positive angle already turns
    // clockwise as seen and the image needs no flip to stay upright.
    cairo_translate(cairo, turned.width / 2, turned.height / 2);
    cairo_rotate(cairo, radians(degrees));
    cairo_translate(cairo, -source.width / 2, -source.height / 2);
    cairo_scale(cairo, source.width / image.pixelWidth(), source.height / image.pixelHeight());
    cairo_set_source_surface(cairo, surface.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cairo), CAIRO_FILTER_NEAREST);
    cairo_set_antialias(cairo, CAIRO_ANTIALIAS_NONE);
    cairo_rectangle(cairo, 0, 0, image.pixelWidth(), image.pixelHeight());
    cairo_fill(cairo);
  });
}

}  // namespace orvante::raster
