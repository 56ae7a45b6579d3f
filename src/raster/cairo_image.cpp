#include "cairo_image.hpp"

#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
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

namespace {

// A Cairo pixel word as the bytes R, G, B, A.
void storeRgba(std::uint32_t pixel, std::uint8_t* out) {
  if constexpr (std::endian::native == std::endian::little) {
    // R, G, B, A in memory is the word A B G R: swap R and B, a whole word
    // at a time, which the compiler vectorises.
    const std::uint32_t swapped =
        (pixel & 0xFF00FF00u) | ((pixel >> 16) & 0xFFu) | ((pixel & 0xFFu) << 16);
    std::memcpy(out, &swapped, 4);
  } else {
    out[0] = static_cast<std::uint8_t>(pixel >> 16);
    out[1] = static_cast<std::uint8_t>(pixel >> 8);
    out[2] = static_cast<std::uint8_t>(pixel);
    out[3] = static_cast<std::uint8_t>(pixel >> 24);
  }
}

struct ContextReleaser {
  void operator()(cairo_t* context) const { cairo_destroy(context); }
};

}  // namespace

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
    for (int x = 0; x < width; ++x, out += 4) storeRgba(row[x], out);
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

// Cairo draws straight into the new image's own buffer, which is then
// reordered in place: a large image costs one buffer, not two.
Image drawImage(int width, int height, const std::function<void(cairo_t*)>& draw) {
  if (width <= 0 || height <= 0) return {};
  // Over the budget (or past Cairo's limit on a side) the drawing is
  // refused as an allocation that fails, before any buffer is made.
  if (width > kMaxRenderedSide || height > kMaxRenderedSide ||
      static_cast<long long>(width) * height > kMaxRenderedPixels) {
    throw std::bad_alloc();
  }
  const int stride = width * 4;  // what Cairo asks of ARGB32 rows
  Bytes pixels(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height));
  {
    Surface surface(cairo_image_surface_create_for_data(pixels.data(), CAIRO_FORMAT_ARGB32, width,
                                                        height, stride));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) throw std::bad_alloc();
    std::unique_ptr<cairo_t, ContextReleaser> context(cairo_create(surface.get()));
    draw(context.get());
    context.reset();
    cairo_surface_finish(surface.get());
  }
  for (std::size_t i = 0; i < pixels.size(); i += 4) {
    std::uint32_t pixel;
    std::memcpy(&pixel, &pixels[i], 4);
    storeRgba(pixel, &pixels[i]);
  }
  return Image(width, height, std::move(pixels));
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

namespace orvante {

Image Image::scaled(int width, int height) const {
  if (empty() || width <= 0 || height <= 0 || width > kMaxRenderedSide ||
      height > kMaxRenderedSide || static_cast<long long>(width) * height > kMaxRenderedPixels) {
    return {};
  }
  return raster::drawImage(width, height, [&](cairo_t* context) {
    raster::drawStretched(context, *this, width, height);
  });
}

}  // namespace orvante
