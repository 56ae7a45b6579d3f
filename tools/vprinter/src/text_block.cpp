// BLOCK: printer-font text wrapped into the lines of a rectangle.

#include <cmath>
#include <numbers>
#include <vector>

#include "printer_font.hpp"

namespace orvante::vprinter {

namespace {

std::vector<std::string> words(const std::string& text) {
  std::vector<std::string> found;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t start = text.find_first_not_of(' ', at);
    if (start == std::string::npos) break;
    const std::size_t end = std::min(text.find(' ', start), text.size());
    found.push_back(text.substr(start, end - start));
    at = end;
  }
  return found;
}

// Greedy wrapping: as many words on a line as fit; a word wider than the
// line goes in pieces of as many characters as fit (one at least).
template <typename Width>
std::vector<std::string> wrap(const std::string& text, double width, Width widthOf) {
  std::vector<std::string> lines;
  std::string line;
  for (const std::string& word : words(text)) {
    const std::string longer = line.empty() ? word : line + " " + word;
    if (widthOf(longer) <= width) {
      line = longer;
      continue;
    }
    if (!line.empty()) lines.push_back(line);
    line.clear();
    for (const std::string& character : characters(word)) {
      if (!line.empty() && widthOf(line + character) > width) {
        lines.push_back(line);
        line.clear();
      }
      line += character;
    }
  }
  if (!line.empty()) lines.push_back(line);
  return lines;
}

}  // namespace

void drawBlock(cairo_t* context, int dpi, const BlockRequest& block, cairo_font_face_t* face) {
  TextRequest line = block.text;
  line.x = line.y = line.rotation = 0;
  line.alignment = 0;
  const auto widthOf = [&](const std::string& text) {
    line.content = text;
    return measureText(context, dpi, line, face).width;
  };
  const std::vector<std::string> lines =
      wrap(asUtf8(block.text.content.substr(0, block.text.content.find('\0'))), block.width,
           widthOf);
  TextRequest sample = line;
  sample.content.assign(1, 'H');
  const double lineHeight = measureText(context, dpi, sample, face).lineHeight;

  cairo_save(context);
  cairo_translate(context, block.text.x, block.text.y);
  cairo_rotate(context, block.text.rotation * std::numbers::pi / 180);
  cairo_rectangle(context, 0, 0, block.width, block.height);
  cairo_clip(context);
  double top = 0;
  for (const std::string& text : lines) {
    if (top + lineHeight > block.height) break;
    const double width = widthOf(text);
    const double free = block.width - width;
    line.x = static_cast<int>(std::lround(block.text.alignment == 2   ? free / 2
                                          : block.text.alignment == 3 ? free
                                                                      : 0));
    line.y = static_cast<int>(std::lround(top));
    line.content = text;
    drawText(context, dpi, line, face);
    top += lineHeight + block.lineSpacing;
  }
  cairo_restore(context);
}

}  // namespace orvante::vprinter
