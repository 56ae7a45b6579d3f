#pragma once
// Printer-resident text. Fonts "1" to "8" are fixed cells of a built-in
// monospace face; "0" is a built-in scalable face sized in points by the
// multipliers. The text turns about its anchor (x, y) clockwise.

#include <cairo.h>

#include <string>
#include <vector>

namespace orvante::vprinter {

struct TextRequest {
  int x = 0;
  int y = 0;
  std::string font;
  int rotation = 0;     // 0, 90, 180 or 270
  int xMultiplier = 1;  // 1 to 10, or points for font "0"
  int yMultiplier = 1;
  int alignment = 0;  // 0 or 1 left, 2 centre, 3 right of x
  std::string content;
};

struct Cell {
  int width;
  int height;
};

// The cell of a fixed font at this resolution; none for other names.
bool fixedCell(const std::string& font, int dpi, Cell& cell);

// Draws the text; `face` replaces the built-in scalable face (a stored
// TrueType font), or is null. Throws CommandWarning for an unknown font.
void drawText(cairo_t* context, int dpi, const TextRequest& request, cairo_font_face_t* face);

// How wide the request's content is set, and how tall its line, in dots.
struct TextMetrics {
  double width;
  double lineHeight;
};
TextMetrics measureText(cairo_t* context, int dpi, const TextRequest& request,
                        cairo_font_face_t* face);

// A block of text wrapped into lines: BLOCK.
struct BlockRequest {
  TextRequest text;  // its x and y are the block's top left; alignment within the block
  int width = 0;
  int height = 0;
  int lineSpacing = 0;
};

// Draws the content in lines no wider than the block, broken at spaces (a
// word wider than the block at characters); the lines that fit its height
// in whole print, turned with the block about its top left.
void drawBlock(cairo_t* context, int dpi, const BlockRequest& block, cairo_font_face_t* face);

// The characters of UTF-8 text, each as its bytes.
std::vector<std::string> characters(const std::string& text);

// Bytes as UTF-8 text: valid UTF-8 as it is, anything else read as Latin-1.
std::string asUtf8(const std::string& bytes);

}  // namespace orvante::vprinter
