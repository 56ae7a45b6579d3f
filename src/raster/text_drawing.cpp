#include "text_drawing.hpp"

#include <glib.h>
#include <pango/pangocairo.h>

#include <cmath>
#include <memory>

#include "cairo_image.hpp"
#include "fonts.hpp"
#include "pixel_budget.hpp"

namespace orvante::text {
namespace {

struct ObjectReleaser {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using Object = std::unique_ptr<T, ObjectReleaser>;

// A context at 72 dpi on this thread's font map, whose cache keeps faces
// warm from one line to the next. Metrics stay fractional (no hinting, no
// rounding of glyph positions) so a line measures what its glyphs advance;
// glyphs are drawn without antialiasing, so every pixel is ink or nothing.
Object<PangoContext> lineContext() {
  Object<PangoContext> context(pango_font_map_create_context(pango_cairo_font_map_get_default()));
  pango_cairo_context_set_resolution(context.get(), 72);
  pango_context_set_round_glyph_positions(context.get(), FALSE);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_NONE);
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  pango_cairo_context_set_font_options(context.get(), options);
  cairo_font_options_destroy(options);
  return context;
}

}  // namespace

double padToEight(double side) {
  const auto whole = static_cast<long long>(side);
  const long long rest = whole % 8;
  return std::trunc(side + (rest > 0 ? 8 - rest : 0));
}

Image drawLine(const std::string& content, const std::string& face, int points) {
  if (points <= 0 || content.empty()) return {};
  // A line taller than an image may be is refused before any glyph of that
  // size is made.
  raster::budgetedPixels(1, points, "a line of text");

  const auto context = lineContext();
  Object<PangoLayout> layout(pango_layout_new(context.get()));
  const auto description = openFace(face, points);
  pango_layout_set_font_description(layout.get(), description.get());
  pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
  // Bytes that are not UTF-8 print as replacement characters.
  char* valid = g_utf8_make_valid(content.data(), static_cast<gssize>(content.size()));
  pango_layout_set_text(layout.get(), valid, -1);
  g_free(valid);

  PangoRectangle logical{};
  pango_layout_get_extents(layout.get(), nullptr, &logical);
  const auto size = raster::budgetedPixels(padToEight(logical.width / double(PANGO_SCALE)),
                                           padToEight(logical.height / double(PANGO_SCALE)),
                                           "a line of text");
  return raster::drawImage(size.width, size.height, [&](cairo_t* cairo) {
    cairo_set_source_rgb(cairo, 0, 0, 0);
    pango_cairo_show_layout(cairo, layout.get());
  });
}

}  // namespace orvante::text
