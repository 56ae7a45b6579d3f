#include "cairo_image.hpp"

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

namespace orvante::raster {
namespace {

// Cairo keeps a pixel as one native 32-bit word: A in the top byte, then R,
// G and B.
std::uint32_t word(const std::uint8_t* rgba) {
  return (std::uint32_t{rgba[3]} << 24) | (std::uint32_t{rgba[0]} << 16) |
         (std::uint32_t{rgba[1]} << 8) | rgba[2];
}

}  // namespace

Surface surfaceOf(const Image& image) {
  Surface surface(
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, image.pixelWidth(), image.pixelHeight()));
  cairo_surface_flush(surface.get());
  unsigned char* data = cairo_image_surface_get_data(surface.get());
  const int stride = cairo_image_surface_get_stride(surface.get());
  const std::uint8_t* in = image.rgba().data();
  for (int y = 0; y < image.pixelHeight(); ++y) {
    auto* row = reinterpret_cast<std::uint32_t*>(data + static_cast<std::size_t>(y) * stride);
    for (int x = 0; x < image.pixelWidth(); ++x, in += 4) row[x] = word(in);
  }
  cairo_surface_mark_dirty(surface.get());
  return surface;
}

Image imageOf(cairo_surface_t* surface) {
  cairo_surface_flush(surface);
  const int width = cairo_image_surface_get_width(surface);
  const int height = cairo_image_surface_get_height(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  const unsigned char* data = cairo_image_surface_get_data(surface);
  if (width <= 0 || height <= 0 || !data) return {};
  Bytes rgba(static_cast<std::size_t>(width) * height * 4);
  std::uint8_t* out = rgba.data();
  for (int y = 0; y < height; ++y) {
    const auto* row =
        reinterpret_cast<const std::uint32_t*>(data + static_cast<std::size_t>(y) * stride);
    for (int x = 0; x < width; ++x, out += 4) {
      const std::uint32_t pixel = row[x];
      out[0] = static_cast<std::uint8_t>(pixel >> 16);
      out[1] = static_cast<std::uint8_t>(pixel >> 8);
      out[2] = static_cast<std::uint8_t>(pixel);
      out[3] = static_cast<std::uint8_t>(pixel >> 24);
    }
  }
  return Image(width, height, std::move(rgba));
}

int pixelsOf(double size) {
  if (!(size > 0)) return 0;
  if (size >= static_cast<double>(std::numeric_limits<int>::max())) {
    return std::numeric_limits<int>::max();
  }
  return static_cast<int>(size);
}

Image drawImage(int width, int height, const std::function<void(cairo_t*)>& draw) {
  if (width <= 0 || height <= 0) return {};
  // Over the budget the drawing is refused as an allocation that fails.
  if (static_cast<std::int64_t>(width) * height > Image::kMaxPixels) throw std::bad_alloc();
  Surface surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
    throw std::bad_alloc();
  }
  cairo_t* context = cairo_create(surface.get());
  draw(context);
  cairo_destroy(context);
  return imageOf(surface.get());
}

void drawStretched(cairo_t* context, const Image& image, double width, double height) {
  if (image.empty()) return;
  Surface source = surfaceOf(image);
  cairo_save(context);
  cairo_scale(context, width / image.pixelWidth(), height / image.pixelHeight());
  cairo_set_source_surface(context, source.get(), 0, 0);
  // Edges stay as sharp as the image's own.
  cairo_pattern_set_extend(cairo_get_source(context), CAIRO_EXTEND_PAD);
  cairo_rectangle(context, 0, 0, image.pixelWidth(), image.pixelHeight());
  cairo_fill(context);
  cairo_restore(context);
}

}  // namespace orvante::raster
