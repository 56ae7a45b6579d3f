#include "barcode.hpp"

#include <zint.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <numbers>

#include "command_line.hpp"
#include "render_error.hpp"

namespace orvante::vprinter {

namespace {

constexpr const char* kBarcodeFont = "DejaVu Sans Mono";
// zint's vector output measures in half modules at scale 1.
constexpr double kUnitsPerModule = 2.0;
// Longest data zint takes for a QR code, and far more than any 1-D code.
constexpr std::size_t kMaxData = 7089;
constexpr int kZintWhite = 8;

using Symbol = std::unique_ptr<zint_symbol, decltype(&ZBarcode_Delete)>;

Symbol newSymbol(int symbology) {
  Symbol symbol(ZBarcode_Create(), &ZBarcode_Delete);
  if (!symbol) throw CommandWarning("no memory for a barcode");
  symbol->symbology = symbology;
  symbol->scale = 1;
  symbol->whitespace_width = 0;
  symbol->border_width = 0;
  return symbol;
}

void encode(zint_symbol* symbol, const std::string& content) {
  if (content.empty()) throw CommandWarning("empty barcode content");
  if (content.size() > kMaxData) throw CommandWarning("barcode content too long");
  const int result = ZBarcode_Encode_and_Buffer_Vector(
      symbol, reinterpret_cast<const unsigned char*>(content.data()),
      static_cast<int>(content.size()), 0);
  if (result >= ZINT_ERROR) throw CommandWarning(std::string("barcode: ") + symbol->errtxt);
}

void setHardText(cairo_t* context) {
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_NONE);
  cairo_set_font_options(context, options);
  cairo_font_options_destroy(options);
}

// Draws zint's vector picture with its left edge at `left` and its top at
// 0, `dots` dots to a unit; edges round to whole dots so every module of
// one symbol has the same width.
void drawVector(cairo_t* context, const zint_vector& vector, double dots, double left,
                bool withText) {
  auto at = [&](double units) { return std::round(units * dots); };
  for (const zint_vector_rect* rect = vector.rectangles; rect; rect = rect->next) {
    if (rect->colour == kZintWhite) continue;
    const double x0 = at(rect->x), x1 = at(rect->x + rect->width);
    const double y0 = at(rect->y), y1 = at(rect->y + rect->height);
    cairo_rectangle(context, left + x0, y0, x1 - x0, y1 - y0);
  }
  cairo_fill(context);
  if (!withText) return;
  setHardText(context);
  cairo_select_font_face(context, kBarcodeFont, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  for (const zint_vector_string* text = vector.strings; text; text = text->next) {
    cairo_set_font_size(context, std::max(1.0, text->fsize * dots));
    const std::string shown(reinterpret_cast<const char*>(text->text));
    cairo_text_extents_t extents;
    cairo_text_extents(context, shown.c_str(), &extents);
    double x = left + text->x * dots;  // zint anchors by halign: 0 centre, 1 left, 2 right
    if (text->halign == 0) x -= extents.x_advance / 2;
    if (text->halign == 2) x -= extents.x_advance;
    cairo_move_to(context, std::round(x), std::round(text->y * dots));
    cairo_show_text(context, shown.c_str());
  }
}

void turnAbout(cairo_t* context, int x, int y, int rotation) {
  cairo_translate(context, x, y);
  cairo_rotate(context, rotation * std::numbers::pi / 180);
}

double leftmostBar(const zint_vector& vector) {
  double left = vector.width;
  for (const zint_vector_rect* rect = vector.rectangles; rect; rect = rect->next) {
    left = std::min<double>(left, rect->x);
  }
  return left;
}

// Codabar needs start and stop characters; content without them gets A.
std::string codabarContent(const std::string& content) {
  const auto guard = [](char c) { return std::strchr("ABCDabcd", c) != nullptr && c != '\0'; };
  if (!content.empty() && guard(content.front()) && guard(content.back())) return content;
  return "A" + content + "A";
}

void checkDigits(const std::string& type, const std::string& content, std::size_t shortest,
                 std::size_t longest) {
  const bool digits =
      std::all_of(content.begin(), content.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!digits || content.size() < shortest || content.size() > longest) {
    throw CommandWarning(type + " takes " + std::to_string(shortest) + " to " +
                         std::to_string(longest) + " digits");
  }
}

}  // namespace

int symbologyOf(const std::string& type) {
  static const std::map<std::string, int> kTypes{
      {"128", BARCODE_CODE128},     {"128M", BARCODE_CODE128},    {"CODE128", BARCODE_CODE128},
      {"39", BARCODE_CODE39},       {"39S", BARCODE_CODE39},      {"39C", BARCODE_CODE39},
      {"CODE39", BARCODE_CODE39},   {"93", BARCODE_CODE93},       {"CODE93", BARCODE_CODE93},
      {"EAN13", BARCODE_EANX},      {"EAN8", BARCODE_EANX},       {"UPCA", BARCODE_UPCA},
      {"UPCE", BARCODE_UPCE},       {"CODA", BARCODE_CODABAR},    {"CODABAR", BARCODE_CODABAR},
      {"25", BARCODE_C25INTER},     {"25I", BARCODE_C25INTER},    {"ITF", BARCODE_C25INTER},
      {"I2OF5", BARCODE_C25INTER},  {"25C", BARCODE_C25INTER},
  };
  const auto found = kTypes.find(upperCase(type));
  return found == kTypes.end() ? 0 : found->second;
}

void drawBarcode(cairo_t* context, const BarcodeRequest& request) {
  const std::string type = upperCase(request.type);
  const int symbology = symbologyOf(type);
  if (symbology == 0) throw CommandWarning("unknown barcode type \"" + request.type + "\"");
  if (request.narrow < 1 || request.narrow > 10) throw CommandWarning("narrow must be 1 to 10");
  if (request.height < 1) throw CommandWarning("barcode height must be positive");
  std::string content = request.content;
  if (type == "EAN13") checkDigits(type, content, 12, 13);
  if (type == "EAN8") checkDigits(type, content, 7, 8);
  if (symbology == BARCODE_CODABAR) content = codabarContent(content);

  Symbol symbol = newSymbol(symbology);
  symbol->height = static_cast<float>(request.height) / static_cast<float>(request.narrow);
  symbol->show_hrt = request.readable ? 1 : 0;
  if (type == "39C" || type == "25C") symbol->option_2 = 1;  // with a check digit
  encode(symbol.get(), content);

  const double dots = request.narrow / kUnitsPerModule;
  const zint_vector& vector = *symbol->vector;
  // The bars start at x; readable EAN and UPC codes keep the room zint
  // leaves on the left for their leading digit.
  const double left = request.readable ? 0 : -std::round(leftmostBar(vector) * dots);
  const double width = std::round(vector.width * dots) + left;
  double shift = 0;
  if (request.alignment == 2) shift = -std::round(width / 2);
  if (request.alignment == 3) shift = -width;

  cairo_save(context);
  turnAbout(context, request.x, request.y, request.rotation);
  drawVector(context, vector, dots, left + shift, request.readable);
  cairo_restore(context);
}

void drawQrCode(cairo_t* context, const QrRequest& request) {
  static const std::string kLevels = "LMQH";
  const auto level = kLevels.find(static_cast<char>(std::toupper(request.ecc)));
  if (level == std::string::npos) throw CommandWarning("ECC level must be L, M, Q or H");
  if (request.cell < 1 || request.cell > 20) throw CommandWarning("cell width must be 1 to 20");
  std::string content = request.content;
  if (request.manual && !content.empty()) {
    // Manual mode: a mode letter first, and for bytes (B) a 4-digit count.
    const char mode = static_cast<char>(std::toupper(content[0]));
    content.erase(0, 1);
    if (mode == 'B' && content.size() >= 4) content.erase(0, 4);
  }
  Symbol symbol = newSymbol(BARCODE_QRCODE);
  symbol->option_1 = static_cast<int>(level) + 1;
  if (request.mask >= 0 && request.mask <= 7) symbol->option_3 = (request.mask + 1) << 8;
  symbol->input_mode = DATA_MODE;
  encode(symbol.get(), content);

  cairo_save(context);
  turnAbout(context, request.x, request.y, request.rotation);
  drawVector(context, *symbol->vector, request.cell / kUnitsPerModule, 0, false);
  cairo_restore(context);
}

}  // namespace orvante::vprinter
