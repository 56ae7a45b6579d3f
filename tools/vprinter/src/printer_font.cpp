#include "printer_font.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "render_error.hpp"

namespace orvante::vprinter {

namespace {

constexpr const char* kMonospace = "DejaVu Sans Mono";
constexpr const char* kScalable = "DejaVu Sans";
constexpr int kBaseDpi = 203;

// Cells of the fixed fonts at 203 dpi, typical of label printers.
constexpr std::array<Cell, 8> kCells{{
    {8, 12}, {12, 20}, {16, 24}, {24, 32}, {32, 48}, {14, 19}, {21, 27}, {14, 25},
}};

std::size_t utf8Length(unsigned char lead) {
  if (lead < 0x80) return 1;
  if ((lead & 0xE0) == 0xC0) return 2;
  if ((lead & 0xF0) == 0xE0) return 3;
  if ((lead & 0xF8) == 0xF0) return 4;
  return 0;
}

bool validUtf8(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = utf8Length(static_cast<unsigned char>(text[at]));
    if (length == 0 || at + length > text.size()) return false;
    for (std::size_t k = 1; k < length; ++k) {
      if ((static_cast<unsigned char>(text[at + k]) & 0xC0) != 0x80) return false;
    }
    // Overlong forms, surrogates and code points past U+10FFFF are not UTF-8.
    const auto b0 = static_cast<unsigned char>(text[at]);
    const auto b1 = length > 1 ? static_cast<unsigned char>(text[at + 1]) : 0;
    if ((length == 2 && b0 < 0xC2) || (length == 3 && b0 == 0xE0 && b1 < 0xA0) ||
        (length == 3 && b0 == 0xED && b1 >= 0xA0) || (length == 4 && b0 == 0xF0 && b1 < 0x90) ||
        (length == 4 && (b0 > 0xF4 || (b0 == 0xF4 && b1 >= 0x90)))) {
      return false;
    }
    at += length;
  }
  return true;
}


void setHardEdges(cairo_t* context) {
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_NONE);
  cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_FULL);
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  cairo_set_font_options(context, options);
  cairo_font_options_destroy(options);
}

// Where the text starts left of its anchor for an alignment.
double alignedStart(int alignment, double width) {
  if (alignment == 2) return -width / 2;
  if (alignment == 3) return -width;
  return 0;
}

void drawFixed(cairo_t* context, Cell cell, const TextRequest& request, const std::string& text) {
  cairo_select_font_face(context, kMonospace, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(context, 1);
  cairo_font_extents_t unit;
  cairo_font_extents(context, &unit);
  const double cellWidth = cell.width * request.xMultiplier;
  const double cellHeight = cell.height * request.yMultiplier;
  // One character fills one cell: its advance spans the width, ascent and
  // descent span the height.
  cairo_matrix_t scale;
  cairo_matrix_init_scale(&scale, cellWidth / unit.max_x_advance,
                          cellHeight / (unit.ascent + unit.descent));
  cairo_set_font_matrix(context, &scale);
  const double baseline = unit.ascent * cellHeight / (unit.ascent + unit.descent);
  const auto glyphs = characters(text);
  const double start = alignedStart(request.alignment, cellWidth * glyphs.size());
  for (std::size_t i = 0; i < glyphs.size(); ++i) {
    cairo_move_to(context, std::round(start + cellWidth * i), std::round(baseline));
    cairo_show_text(context, glyphs[i].c_str());
  }
}

void selectScalable(cairo_t* context, int dpi, const TextRequest& request,
                    cairo_font_face_t* face) {
  if (face) {
    cairo_set_font_face(context, face);
  } else {
    cairo_select_font_face(context, kScalable, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  }
  // The multipliers are the size in points.
  const double dotsPerPoint = dpi / 72.0;
  cairo_matrix_t size;
  cairo_matrix_init_scale(&size, request.xMultiplier * dotsPerPoint,
                          request.yMultiplier * dotsPerPoint);
  cairo_set_font_matrix(context, &size);
}

void drawScalable(cairo_t* context, int dpi, const TextRequest& request, const std::string& text,
                  cairo_font_face_t* face) {
  selectScalable(context, dpi, request, face);
  cairo_font_extents_t font;
  cairo_font_extents(context, &font);
  cairo_text_extents_t extents;
  cairo_text_extents(context, text.c_str(), &extents);
  cairo_move_to(context, std::round(alignedStart(request.alignment, extents.x_advance)),
                std::round(font.ascent));
  cairo_show_text(context, text.c_str());
}

}  // namespace

std::vector<std::string> characters(const std::string& text) {
  std::vector<std::string> out;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = std::max<std::size_t>(1, utf8Length(static_cast<unsigned char>(text[at])));
    out.push_back(text.substr(at, length));
    at += length;
  }
  return out;
}

bool fixedCell(const std::string& font, int dpi, Cell& cell) {
  if (font.size() != 1 || font[0] < '1' || font[0] > '8') return false;
  const Cell base = kCells[static_cast<std::size_t>(font[0] - '1')];
  cell = {static_cast<int>(std::lround(base.width * dpi / double(kBaseDpi))),
          static_cast<int>(std::lround(base.height * dpi / double(kBaseDpi)))};
  return true;
}

std::string asUtf8(const std::string& bytes) {
  if (validUtf8(bytes)) return bytes;
  std::string text;
  for (unsigned char c : bytes) {
    if (c < 0x80) {
      text += static_cast<char>(c);
    } else {
      text += static_cast<char>(0xC0 | (c >> 6));
      text += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return text;
}

namespace {

// Whether the font is fixed (its cell then set); CommandWarning when it is
// neither fixed, scalable nor stored.
bool checkedFont(int dpi, const TextRequest& request, cairo_font_face_t* face, Cell& cell) {
  const bool fixed = fixedCell(request.font, dpi, cell);
  if (!fixed && request.font != "0" && !face) {
    throw CommandWarning("unknown font \"" + request.font + "\"");
  }
  return fixed;
}

// Cairo stops at a NUL; the text is what comes before it.
std::string drawnText(const std::string& content) {
  return asUtf8(content.substr(0, content.find('\0')));
}

}  // namespace

TextMetrics measureText(cairo_t* context, int dpi, const TextRequest& request,
                        cairo_font_face_t* face) {
  Cell cell{};
  const std::string text = drawnText(request.content);
  if (checkedFont(dpi, request, face, cell)) {
    return {static_cast<double>(cell.width) * request.xMultiplier * characters(text).size(),
            static_cast<double>(cell.height) * request.yMultiplier};
  }
  cairo_save(context);
  setHardEdges(context);
  selectScalable(context, dpi, request, face);
  cairo_font_extents_t font;
  cairo_font_extents(context, &font);
  cairo_text_extents_t extents;
  cairo_text_extents(context, text.c_str(), &extents);
  cairo_restore(context);
  return {extents.x_advance, std::ceil(font.ascent + font.descent)};
}

void drawText(cairo_t* context, int dpi, const TextRequest& request, cairo_font_face_t* face) {
  Cell cell{};
  const bool fixed = checkedFont(dpi, request, face, cell);
  const std::string text = drawnText(request.content);
  cairo_save(context);
  setHardEdges(context);
  cairo_translate(context, request.x, request.y);
  cairo_rotate(context, request.rotation * std::numbers::pi / 180);
  if (fixed) {
    drawFixed(context, cell, request, text);
  } else {
    drawScalable(context, dpi, request, text, face);
  }
  cairo_restore(context);
}

}  // namespace orvante::vprinter
