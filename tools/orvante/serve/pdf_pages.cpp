// Labels as PDF pages through cairo: each label's dots become a 1-bit
// mask painted black, scaled from dots to points without smoothing, so
// the PDF holds the raster as printed, small and sharp.

#include <cairo-pdf.h>
#include <cairo.h>

#include <array>
#include <bit>
#include <stdexcept>

#include "preview.hpp"

namespace orvante::serve {
namespace {

// A label's row byte (leftmost dot in the top bit, 1 blank) as cairo's A1
// byte (1 ink; on little-endian machines the leftmost dot in the low bit).
constexpr std::array<std::uint8_t, 256> kA1Bytes = [] {
  std::array<std::uint8_t, 256> table{};
  for (int value = 0; value < 256; ++value) {
    const auto ink = static_cast<std::uint8_t>(~value);
    std::uint8_t mirrored = 0;
    for (int bit = 0; bit < 8; ++bit) mirrored |= ((ink >> bit) & 1) << (7 - bit);
    table[value] = std::endian::native == std::endian::little ? mirrored : ink;
  }
  return table;
}();

cairo_surface_t* maskOf(const vprinter::PrintedLabel& label) {
  cairo_surface_t* mask = cairo_image_surface_create(CAIRO_FORMAT_A1, label.width(), label.height());
  if (cairo_surface_status(mask) != CAIRO_STATUS_SUCCESS) return mask;
  cairo_surface_flush(mask);
  unsigned char* data = cairo_image_surface_get_data(mask);
  const int stride = cairo_image_surface_get_stride(mask);
  const std::size_t bytes = label.stride();
  // The last byte's bits past the label's width are blank.
  const int spare = static_cast<int>(bytes * 8) - label.width();
  const auto lastKeeps = static_cast<std::uint8_t>(0xFF << spare);
  for (int y = 0; y < label.height(); ++y) {
    const std::uint8_t* from = label.rows().data() + static_cast<std::size_t>(y) * bytes;
    unsigned char* to = data + static_cast<std::ptrdiff_t>(y) * stride;
    for (std::size_t i = 0; i < bytes; ++i) {
      const std::uint8_t value = i + 1 == bytes ? static_cast<std::uint8_t>(from[i] | ~lastKeeps) : from[i];
      to[i] = kA1Bytes[value];
    }
  }
  cairo_surface_mark_dirty(mask);
  return mask;
}

cairo_status_t append(void* closure, const unsigned char* data, unsigned int length) {
  auto* out = static_cast<Bytes*>(closure);
  out->insert(out->end(), data, data + length);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

Bytes pdfOf(const std::vector<vprinter::PrintedLabel>& labels, int dpi) {
  Bytes out;
  const double points = 72.0 / dpi;
  const double firstWidth = labels.empty() ? 1 : labels.front().width() * points;
  const double firstHeight = labels.empty() ? 1 : labels.front().height() * points;
  cairo_surface_t* document = cairo_pdf_surface_create_for_stream(append, &out, firstWidth, firstHeight);
  cairo_t* context = cairo_create(document);
  for (const auto& label : labels) {
    cairo_pdf_surface_set_size(document, label.width() * points, label.height() * points);
    cairo_surface_t* mask = maskOf(label);
    cairo_save(context);
    cairo_scale(context, points, points);
    cairo_set_source_rgb(context, 0, 0, 0);
    cairo_pattern_t* pattern = cairo_pattern_create_for_surface(mask);
    cairo_pattern_set_filter(pattern, CAIRO_FILTER_NEAREST);
    cairo_mask(context, pattern);
    cairo_pattern_destroy(pattern);
    cairo_surface_destroy(mask);
    cairo_restore(context);
    cairo_show_page(context);
  }
  const cairo_status_t drawn = cairo_status(context);
  cairo_destroy(context);
  cairo_surface_finish(document);
  const cairo_status_t written = cairo_surface_status(document);
  cairo_surface_destroy(document);
  if (drawn != CAIRO_STATUS_SUCCESS || written != CAIRO_STATUS_SUCCESS) {
    throw std::runtime_error(std::string("cannot make the PDF: ") +
                             cairo_status_to_string(drawn != CAIRO_STATUS_SUCCESS ? drawn : written));
  }
  return out;
}

}  // namespace orvante::serve
