// orvante::Label: the second door's label, built from the same command
// lines, encodings and packers as the session's operations. Its bitmap
// packets are compressed with lzss::compress, which the printer decodes to
// the same raster as the session's classic encoder, in less time and fewer
// bytes.

#include <orvante/exception.hpp>
#include <orvante/label.hpp>
#include <orvante/lzss.hpp>

#include <array>
#include <cmath>
#include <stdexcept>
#include <string>

#include <orvante/commands.hpp>
#include "../commands/fields.hpp"
#include "../commands/text_encoding.hpp"
#include "../raster/dither.hpp"
#include "../raster/face_choice.hpp"
#include "../raster/fonts.hpp"
#ifdef ORVANTE_HAS_PDF
#include "../raster/pdf_pages.hpp"
#endif
#include "../raster/rotation.hpp"
#include "../raster/text_drawing.hpp"

namespace orvante {
namespace {

namespace commands = orvante::commands;

// The barcode types of the label command language.
constexpr std::array<std::string_view, 24> kBarcodeTypes{
    "128",   "128M", "EAN128",  "25",   "25C",   "39",      "39C",     "93",
    "EAN13", "EAN8", "UPCA",    "UPCE", "CODA",  "CODABAR", "ITF14",   "EAN14",
    "MSI",   "MSIC", "PLESSEY", "POST", "CPOST", "11",      "LOGMARS", "CODE128"};


void require(bool condition, const std::string& message) {
  if (!condition) throw std::invalid_argument(message);
}

void requirePositive(double value, const char* what) {
  require(std::isfinite(value) && value > 0,
          std::string(what) + " must be a number above 0, not " + std::to_string(value));
}

void requireNonNegative(double value, const char* what) {
  require(std::isfinite(value) && value >= 0,
          std::string(what) + " must be a number of 0 or more, not " + std::to_string(value));
}

void requirePosition(int x, int y) {
  require(x >= 0 && y >= 0 && x <= 0xFFFF && y <= 0xFFFF,
          "the position " + std::to_string(x) + "," + std::to_string(y) +
              " is off the label (0 to 65535 dots)");
}

void requireRotation(int rotation) {
  require(rotation == 0 || rotation == 90 || rotation == 180 || rotation == 270,
          "the rotation must be 0, 90, 180 or 270, not " + std::to_string(rotation));
}

void requireArea(int width, int height, const char* what) {
  require(width >= 1 && height >= 1 && width <= 0xFFFF && height <= 0xFFFF,
          std::string(what) + " must be 1 to 65535 dots each way, not " + std::to_string(width) +
              " x " + std::to_string(height));
}

void requireMultipliers(int x, int y) {
  for (int multiplier : {x, y}) {
    require(multiplier >= 1 && multiplier <= 10,
            "a text multiplier must be 1 to 10, not " + std::to_string(multiplier));
  }
}

using LabelSize = std::optional<std::pair<int, int>>;

void checkFits(const LabelSize& label, int x, int y, int width, int height, std::string_view what) {
  if (!label) return;
  const auto [labelWidth, labelHeight] = *label;
  require(x + width <= labelWidth && y + height <= labelHeight,
          std::string(what) + " of " + std::to_string(width) + " x " + std::to_string(height) +
              " dots at " + std::to_string(x) + "," + std::to_string(y) +
              " does not fit on the label of " + std::to_string(labelWidth) + " x " +
              std::to_string(labelHeight) + " dots");
}

// The image's raster, once its place and size are known to be good.
raster::PaddedRaster rasterAt(const LabelSize& label, int x, int y, const Image& picture,
                              const ImageOptions& options) {
  requirePosition(x, y);
  require(!picture.empty(), "the image is empty (it could not be read or decoded)");
  checkFits(label, x, y, picture.pixelWidth(), picture.pixelHeight(), "an image");
  return raster::ditheredRaster(picture, options.dither, options.threshold);
}

}  // namespace

Label::Label(int dpi) : dpi_(dpi) {
  require(dpi > 0, "the resolution must be above 0 dpi, not " + std::to_string(dpi));
}

void Label::append(std::string_view text, Encoding encoding) {
  const Bytes encoded = encode(text, encoding);
  // The session sends such a line as no bytes at all; a label refuses it.
  require(text.empty() || !encoded.empty(), "the line cannot be written in its encoding");
  append(encoded);
}

void Label::append(ByteView bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

Label& Label::size(double widthMm, double heightMm) {
  requirePositive(widthMm, "the label width");
  requirePositive(heightMm, "the label height");
  const double dotsPerMm = dpi_ / 25.4;
  sizeInDots_ = {static_cast<int>(std::lround(std::min(widthMm * dotsPerMm, 1e6))),
                 static_cast<int>(std::lround(std::min(heightMm * dotsPerMm, 1e6)))};
  append(commands::sizeLine(widthMm, heightMm));
  return *this;
}

Label& Label::gap(double gapMm, double offsetMm) {
  requireNonNegative(gapMm, "the gap");
  requireNonNegative(offsetMm, "the gap offset");
  append(commands::mediaLine(false, gapMm, offsetMm));
  return *this;
}

Label& Label::blackMark(double markMm, double offsetMm) {
  requirePositive(markMm, "the black mark");
  requireNonNegative(offsetMm, "the black mark offset");
  append(commands::mediaLine(true, markMm, offsetMm));
  return *this;
}

Label& Label::speed(double inchesPerSecond) {
  requirePositive(inchesPerSecond, "the print speed");
  append(commands::speedLine(inchesPerSecond));
  return *this;
}

Label& Label::density(int darkness) {
  require(darkness >= 0 && darkness <= 15,
          "the density must be 0 to 15, not " + std::to_string(darkness));
  append(commands::densityLine(darkness));
  return *this;
}

Label& Label::clear() {
  append(commands::kClearLine);
  return *this;
}

Label& Label::text(int x, int y, std::string_view font, std::string_view content,
                   const TextOptions& options) {
  requirePosition(x, y);
  require(!font.empty(), "the printer font needs a name (\"1\" to \"8\", \"0\" or a file)");
  requireRotation(options.rotation);
  requireMultipliers(options.xMultiplier, options.yMultiplier);
  const Bytes encoded = encode(content, options.encoding);
  require(content.empty() || !encoded.empty(), "the text cannot be written in the chosen encoding");
  const std::string line =
      commands::textLine(x, y, std::string(font), options.rotation, options.xMultiplier,
                         options.yMultiplier, std::string(content));
  // A character's bytes in Big5 or GB 18030 may end in '~'.
  if (options.encoding != Encoding::Utf8) fields::requireQuotable("the content", encoded);
  append(line, options.encoding);
  return *this;
}

Label& Label::barcode(int x, int y, std::string_view type, std::string_view code, int height,
                      const BarcodeOptions& options) {
  requirePosition(x, y);
  bool known = false;
  for (auto candidate : kBarcodeTypes) known = known || candidate == type;
  require(known, "the printer knows no barcode type \"" + std::string(type) + "\"");
  require(!code.empty(), "a barcode needs a code to encode");
  require(height > 0, "the barcode height must be above 0 dots, not " + std::to_string(height));
  requireRotation(options.rotation);
  require(options.narrow > 0 && options.wide > 0, "bar widths must be above 0 dots");
  checkFits(sizeInDots_, x, y, 0, height, "a barcode");
  const std::string line =
      commands::barcodeLine(x, y, std::string(type), height, options.readable ? 1 : 0,
                            options.rotation, options.narrow, options.wide, std::string(code));
  // The line goes in Big5-HKSCS, where a character's bytes may end in '~'.
  const Bytes encoded = encode(code, Encoding::Big5Hkscs);
  require(!encoded.empty(), "the code cannot be written in Big5-HKSCS, the encoding of barcodes");
  fields::requireQuotable("the code", encoded);
  append(line);
  return *this;
}

Label& Label::textBlock(int x, int y, int width, int height, std::string_view font,
                        std::string_view content, const TextBlockOptions& options) {
  requirePosition(x, y);
  requireArea(width, height, "a text block");
  checkFits(sizeInDots_, x, y, width, height, "a text block");
  require(!font.empty(), "the printer font needs a name (\"1\" to \"8\", \"0\" or a file)");
  requireRotation(options.rotation);
  requireMultipliers(options.xMultiplier, options.yMultiplier);
  require(options.lineSpacing >= 0 && options.lineSpacing <= 0xFFFF,
          "the line spacing must be 0 to 65535 dots, not " + std::to_string(options.lineSpacing));
  const int alignment = static_cast<int>(options.alignment);
  require(alignment >= 1 && alignment <= 3, "the alignment must be left, center or right");
  const Bytes encoded = encode(content, options.encoding);
  require(content.empty() || !encoded.empty(), "the text cannot be written in the chosen encoding");
  const std::string line = commands::textBlockLine(
      x, y, width, height, std::string(font), options.rotation, options.xMultiplier,
      options.yMultiplier, options.lineSpacing, alignment, std::string(content));
  if (options.encoding != Encoding::Utf8) fields::requireQuotable("the content", encoded);
  append(line, options.encoding);
  return *this;
}

Label& Label::qrCode(int x, int y, std::string_view data, const QrCodeOptions& options) {
  requirePosition(x, y);
  require(!data.empty(), "a QR code needs data to encode");
  const char level = options.errorCorrection;
  require(level == 'L' || level == 'M' || level == 'Q' || level == 'H',
          "the error correction must be L, M, Q or H, not '" + std::string(1, level) + "'");
  require(options.cell >= 1 && options.cell <= 20,
          "the QR cell width must be 1 to 20 dots, not " + std::to_string(options.cell));
  requireRotation(options.rotation);
  append(commands::qrCodeLine(x, y, std::string(1, level), options.cell, options.rotation,
                              std::string(data)),
         Encoding::Utf8);
  return *this;
}

Label& Label::bar(int x, int y, int width, int height) {
  requirePosition(x, y);
  requireArea(width, height, "a bar");
  checkFits(sizeInDots_, x, y, width, height, "a bar");
  append(commands::barLine(x, y, width, height));
  return *this;
}

Label& Label::box(int x, int y, int xEnd, int yEnd, int thickness, int radius) {
  requirePosition(x, y);
  requirePosition(xEnd, yEnd);
  require(xEnd > x && yEnd > y, "a box ends right of and below where it starts, not at " +
                                    std::to_string(xEnd) + "," + std::to_string(yEnd) +
                                    " from " + std::to_string(x) + "," + std::to_string(y));
  checkFits(sizeInDots_, x, y, xEnd - x, yEnd - y, "a box");
  require(thickness >= 1 && thickness <= 0xFFFF,
          "the line thickness must be 1 to 65535 dots, not " + std::to_string(thickness));
  require(radius >= 0 && radius <= 0xFFFF,
          "the corner radius must be 0 to 65535 dots, not " + std::to_string(radius));
  append(commands::boxLine(x, y, xEnd, yEnd, thickness, radius));
  return *this;
}

Label& Label::reverse(int x, int y, int width, int height) {
  requirePosition(x, y);
  requireArea(width, height, "a reversed area");
  checkFits(sizeInDots_, x, y, width, height, "a reversed area");
  append(commands::reverseLine(x, y, width, height));
  return *this;
}

Label& Label::erase(int x, int y, int width, int height) {
  requirePosition(x, y);
  requireArea(width, height, "an erased area");
  checkFits(sizeInDots_, x, y, width, height, "an erased area");
  append(commands::eraseLine(x, y, width, height));
  return *this;
}

Label& Label::circle(int x, int y, int diameter, int thickness) {
  requirePosition(x, y);
  requireArea(diameter, diameter, "a circle");
  checkFits(sizeInDots_, x, y, diameter, diameter, "a circle");
  require(thickness >= 1 && thickness <= 0xFFFF,
          "the line thickness must be 1 to 65535 dots, not " + std::to_string(thickness));
  append(commands::circleLine(x, y, diameter, thickness));
  return *this;
}

Label& Label::add(const Label& part) {
  require(part.dpi_ == dpi_, "a part made for " + std::to_string(part.dpi_) +
                                 " dpi cannot go on a label of " + std::to_string(dpi_) + " dpi");
  append(part.bytes_);
  if (!sizeInDots_) sizeInDots_ = part.sizeInDots_;
  return *this;
}

void Label::appendPacket(int x, int y, int bytesPerRow, int rows, ByteView raster) {
  append(raster::packetHeader(x, y, bytesPerRow, rows));
  append(lzss::compress(raster));
  // The line end closes the packet, as the rendered text's packet is closed.
  append(std::string_view("\r\n"));
}

Label& Label::image(int x, int y, const Image& picture, const ImageOptions& options) {
  const auto raster = rasterAt(sizeInDots_, x, y, picture, options);
  appendPacket(x, y, raster.bytesPerRow, raster.rows, raster.bytes);
  return *this;
}

Label& Label::renderedText(int x, int y, std::string_view family, int dots,
                           std::string_view content, const FontOptions& options) {
  requirePosition(x, y);
  requireRotation(options.rotation);
  require(dots > 0 && dots <= 2000,
          "the text size must be 1 to 2000 dots, not " + std::to_string(dots));
  require(!content.empty(), "there is no text to draw");
  const std::string face = text::chooseFace(std::string(family), options.bold, options.italic,
                                            text::familyNames(), text::faceNames);
  Image drawn;
  try {
    drawn = text::drawLine(std::string(content), face, dots);
  } catch (const Exception& tooLarge) {
    throw std::invalid_argument(tooLarge.reason());
  }
  if (options.rotation != 0) drawn = raster::rotateImage(drawn, options.rotation);
  checkFits(sizeInDots_, x, y, drawn.pixelWidth(), drawn.pixelHeight(), "the text");
  // Drawn sides are multiples of 8, so the alpha raster is whole rows.
  appendPacket(x, y, drawn.pixelWidth() / 8, drawn.pixelHeight(), raster::alphaRaster(drawn));
  return *this;
}

Label& Label::bitmap(int x, int y, const Image& picture, const ImageOptions& options) {
  const auto raster = rasterAt(sizeInDots_, x, y, picture, options);
  append(raster::bitmapCommand(x, y, raster.bytesPerRow, raster.rows, raster.bytes));
  return *this;
}

Label& Label::pdfPage(int x, int y, const PdfDocument& document, int page,
                      const ImageOptions& options) {
#ifdef ORVANTE_HAS_PDF
  require(page >= 1 && page <= document.pageCount(),
          "the document has no page " + std::to_string(page) + " (it has " +
              std::to_string(document.pageCount()) + ")");
  Image drawn;
  try {
    drawn = raster::pdfPageAtResolution(document, page, dpi_);
  } catch (const Exception& tooLarge) {
    throw std::invalid_argument(tooLarge.reason());
  }
  return image(x, y, drawn, options);
#else
  (void)x, (void)y, (void)document, (void)page, (void)options;
  throw Error("this build of orvante prints no PDF pages");
#endif
}

Label& Label::print(int sets, int copies) {
  require(sets >= 1 && copies >= 1, "sets and copies must be 1 or more");
  append(commands::printLine(sets, copies));
  return *this;
}

Label& Label::formFeed() {
  append(commands::kFormFeedLine);
  return *this;
}

Label& Label::tearOff(bool on) {
  append(on ? commands::kTearOnLine : commands::kTearOffLine);
  return *this;
}

Label& Label::raw(std::string_view line) {
  append(line, Encoding::Utf8);
  if (!line.ends_with('\n')) append(std::string_view("\r\n"));
  return *this;
}

Label& Label::download(std::string_view name, ByteView data) {
  append(commands::downloadHeader(name, data.size()));
  append(data);
  append(std::string_view("\r\n"));
  return *this;
}

}  // namespace orvante
