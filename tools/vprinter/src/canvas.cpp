#include "canvas.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <stdexcept>

namespace orvante::vprinter {

namespace {

// Cairo keeps 1-bit pixels in 32-bit words, first pixel in the least
// significant bit on little-endian hosts and in the most significant on
// big-endian ones; byte by byte that is LSB-first or MSB-first.
constexpr bool kLsbFirst = std::endian::native == std::endian::little;

constexpr std::uint8_t bitOf(int x) {
  return static_cast<std::uint8_t>(kLsbFirst ? 1u << (x & 7) : 0x80u >> (x & 7));
}

// A Cairo byte as a byte of the printer's raster: MSB-first, 1 blank.
constexpr std::array<std::uint8_t, 256> kToRaster = [] {
  std::array<std::uint8_t, 256> table{};
  for (int byte = 0; byte < 256; ++byte) {
    std::uint8_t out = 0;
    for (int x = 0; x < 8; ++x) {
      if (byte & bitOf(x)) out |= static_cast<std::uint8_t>(0x80 >> x);
    }
    table[byte] = static_cast<std::uint8_t>(~out);
  }
  return table;
}();

cairo_surface_t* newSurface(int width, int height) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_A1, width, height);
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    throw std::runtime_error("no memory for a label of " + std::to_string(width) + " x " +
                             std::to_string(height) + " dots");
  }
  return surface;
}

}  // namespace

Canvas::Canvas(int width, int height)
    : width_(width), height_(height), surface_(newSurface(width, height)) {}

Canvas::~Canvas() { cairo_surface_destroy(surface_); }

std::uint8_t* Canvas::row(int y) {
  return cairo_image_surface_get_data(surface_) +
         static_cast<std::size_t>(y) * cairo_image_surface_get_stride(surface_);
}

void Canvas::clear() {
  cairo_surface_flush(surface_);
  std::fill_n(cairo_image_surface_get_data(surface_),
              static_cast<std::size_t>(cairo_image_surface_get_stride(surface_)) * height_, 0);
  cairo_surface_mark_dirty(surface_);
}

void Canvas::resize(int width, int height) {
  if (width == width_ && height == height_) return;
  cairo_surface_t* resized = newSurface(width, height);
  cairo_t* context = cairo_create(resized);
  cairo_set_source_surface(context, surface_, 0, 0);
  cairo_paint(context);
  cairo_destroy(context);
  cairo_surface_destroy(surface_);
  surface_ = resized;
  width_ = width;
  height_ = height;
}

template <typename Op>
void Canvas::spanBits(int y, int x0, int x1, Op op) {
  std::uint8_t* bytes = row(y);
  int x = x0;
  // Partial bytes dot by dot, whole bytes at once.
  for (; x < x1 && (x & 7) != 0; ++x) op(bytes[x >> 3], bitOf(x));
  for (; x + 8 <= x1; x += 8) op(bytes[x >> 3], std::uint8_t{0xFF});
  for (; x < x1; ++x) op(bytes[x >> 3], bitOf(x));
}

template <typename Op>
void Canvas::rectBits(Rect rect, Op op) {
  const int x0 = std::max(rect.x, 0), y0 = std::max(rect.y, 0);
  const int x1 = static_cast<int>(std::min<long>(static_cast<long>(rect.x) + rect.width, width_));
  const int y1 = static_cast<int>(std::min<long>(static_cast<long>(rect.y) + rect.height, height_));
  if (x0 >= x1 || y0 >= y1) return;
  cairo_surface_flush(surface_);
  for (int y = y0; y < y1; ++y) spanBits(y, x0, x1, op);
  cairo_surface_mark_dirty(surface_);
}

void Canvas::fill(Rect rect) {
  rectBits(rect, [](std::uint8_t& byte, std::uint8_t mask) { byte |= mask; });
}

void Canvas::invert(Rect rect) {
  rectBits(rect, [](std::uint8_t& byte, std::uint8_t mask) { byte ^= mask; });
}

void Canvas::erase(Rect rect) {
  rectBits(rect, [](std::uint8_t& byte, std::uint8_t mask) { byte &= ~mask; });
}

namespace {

// A raster byte's ink (MSB first, 0 printed) as canvas bits of 8 dots.
constexpr std::array<std::uint8_t, 256> kInk = [] {
  std::array<std::uint8_t, 256> table{};
  for (int byte = 0; byte < 256; ++byte) {
    std::uint8_t bits = 0;
    for (int x = 0; x < 8; ++x) {
      if (!(byte & (0x80 >> x))) bits |= bitOf(x);
    }
    table[byte] = bits;
  }
  return table;
}();

// Eight canvas dots that start `shift` dots into a byte straddle it and
// the next: the part in the first byte and the part in the second.
constexpr std::uint8_t firstPart(std::uint8_t bits, int shift) {
  return static_cast<std::uint8_t>(kLsbFirst ? bits << shift : bits >> shift);
}
constexpr std::uint8_t secondPart(std::uint8_t bits, int shift) {
  return static_cast<std::uint8_t>(kLsbFirst ? bits >> (8 - shift) : bits << (8 - shift));
}

void combine(std::uint8_t& byte, std::uint8_t ink, std::uint8_t cover, BlitMode mode) {
  switch (mode) {
    case BlitMode::Overwrite:
      byte = static_cast<std::uint8_t>((byte & ~cover) | ink);
      break;
    case BlitMode::Or:
      byte |= ink;
      break;
    case BlitMode::Xor:
      byte ^= ink;
      break;
  }
}

}  // namespace

bool Canvas::blit(int x, int y, int bytesPerRow, int rows, ByteView raster, BlitMode mode) {
  const long width = static_cast<long>(bytesPerRow) * 8;
  const bool clipped = x < 0 || y < 0 || x + width > width_ || static_cast<long>(y) + rows > height_;
  const int shift = x & 7;
  cairo_surface_flush(surface_);
  for (int r = std::max(0, -y); r < rows && static_cast<long>(y) + r < height_; ++r) {
    const std::uint8_t* source = raster.data() + static_cast<std::size_t>(r) * bytesPerRow;
    std::uint8_t* target = row(y + r);
    for (int i = 0; i < bytesPerRow; ++i) {
      const long dx = x + 8L * i;
      if (dx + 8 <= 0 || dx >= width_) continue;
      if (dx >= 0 && dx + 8 <= width_) {
        // All eight dots on the label: whole bytes at a time.
        const std::uint8_t ink = kInk[source[i]];
        std::uint8_t* first = target + (dx >> 3);
        combine(first[0], firstPart(ink, shift), firstPart(0xFF, shift), mode);
        if (shift) combine(first[1], secondPart(ink, shift), secondPart(0xFF, shift), mode);
        continue;
      }
      // A byte across the label's edge: dot by dot.
      for (int bit = 0; bit < 8; ++bit) {
        const long at = dx + bit;
        if (at < 0 || at >= width_) continue;
        const bool printed = !(source[i] & (0x80 >> bit));
        const std::uint8_t mask = bitOf(static_cast<int>(at));
        combine(target[at >> 3], printed ? mask : 0, mask, mode);
      }
    }
  }
  cairo_surface_mark_dirty(surface_);
  return clipped;
}

CairoContext Canvas::draw() {
  CairoContext context(cairo_create(surface_), &cairo_destroy);
  cairo_set_antialias(context.get(), CAIRO_ANTIALIAS_NONE);
  cairo_set_source_rgba(context.get(), 0, 0, 0, 1);
  return context;
}

PrintedLabel Canvas::snapshot(bool turned, bool mirrored) const {
  cairo_surface_flush(surface_);
  const std::uint8_t* data = cairo_image_surface_get_data(surface_);
  const std::size_t stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface_));
  const std::size_t out = (static_cast<std::size_t>(width_) + 7) / 8;
  Bytes rows(out * height_, 0xFF);
  if (!turned && !mirrored) {
    for (int y = 0; y < height_; ++y) {
      const std::uint8_t* in = data + y * stride;
      std::uint8_t* to = rows.data() + y * out;
      for (std::size_t i = 0; i < out; ++i) to[i] = kToRaster[in[i]];
      // Dots past the width stay blank.
      if (width_ & 7) to[out - 1] |= static_cast<std::uint8_t>(0xFF >> (width_ & 7));
    }
    return PrintedLabel(width_, height_, std::move(rows));
  }
  // Turning 180 degrees flips both ways; mirroring flips left to right again.
  const bool flipX = turned != mirrored;
  for (int y = 0; y < height_; ++y) {
    const std::uint8_t* in = data + (turned ? height_ - 1 - y : y) * stride;
    std::uint8_t* to = rows.data() + y * out;
    for (int x = 0; x < width_; ++x) {
      const int from = flipX ? width_ - 1 - x : x;
      if (in[from >> 3] & bitOf(from)) to[x >> 3] &= static_cast<std::uint8_t>(~(0x80 >> (x & 7)));
    }
  }
  return PrintedLabel(width_, height_, std::move(rows));
}

}  // namespace orvante::vprinter
