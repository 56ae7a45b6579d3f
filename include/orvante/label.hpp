#pragma once
// orvante::Label: a label as a value. Each call adds the printer commands
// for one element; bytes() gives them, ready for Printer::print or any
// other way to the printer. The lines are the ones the session sends for
// the same operations. Bad arguments are refused when added, with
// std::invalid_argument saying what and why.
//
// Text from users is safe here: a text's content and a barcode's code print
// exactly as given (quotes included) or are refused when they hold what no
// command line can carry (line ends, other control characters, "~!"); font,
// barcode type and file names hold only letters, digits, '.', '_' and '-'
// (the rules in full: <orvante/commands.hpp>). Only raw() sends its line
// as it stands: never put a user's text there.
//
//   orvante::Label label;
//   label.size(50, 30).gap(2).clear()
//        .text(24, 24, "3", "ORVANTE")
//        .barcode(24, 80, "128", "SHIP-000421", 80)
//        .image(300, 20, orvante::Image::fromFile("logo.png"), {orvante::Dither::Atkinson})
//        .print();

#include <cstdint>
#include <optional>
#include <string_view>

#include <orvante/bytes.hpp>
#include <orvante/dither.hpp>
#include <orvante/encoding.hpp>
#include <orvante/export.hpp>
#include <orvante/image.hpp>
#include <orvante/pdf.hpp>

ORVANTE_API_BEGIN

namespace orvante {

struct ImageOptions {
  Dither dither = Dither::Threshold;
  // The grey (0 to 255) below which a dot prints; the middle grey of the
  // dithering modes.
  double threshold = 128;
};

struct TextOptions {
  int rotation = 0;  // 0, 90, 180 or 270
  int xMultiplier = 1;
  int yMultiplier = 1;
  Encoding encoding = Encoding::Utf8;
};

struct FontOptions {
  bool bold = false;
  bool italic = false;
  int rotation = 0;  // clockwise: 0, 90, 180 or 270
};

struct BarcodeOptions {
  bool readable = true;  // the human-readable line under the bars
  int rotation = 0;
  int narrow = 2;  // the narrow bar (module) width, in dots
  int wide = 2;
};

struct QrCodeOptions {
  char errorCorrection = 'M';  // L (7 %), M (15 %), Q (25 %) or H (30 %) of the code restored
  int cell = 4;                // the module's width in dots, 1 to 20
  int rotation = 0;
};

enum class Alignment { Left = 1, Center = 2, Right = 3 };

struct TextBlockOptions {
  int rotation = 0;
  int xMultiplier = 1;
  int yMultiplier = 1;
  int lineSpacing = 0;  // dots between lines
  Alignment alignment = Alignment::Left;
  Encoding encoding = Encoding::Utf8;
};

class Label {
 public:
  // The printer's resolution, for sizes in mm and the checks against the
  // label's size: 203 (8 dots/mm) or 300 (12 dots/mm), or any other.
  explicit Label(int dpi = 203);

  // --- Media ----------------------------------------------------------------
  Label& size(double widthMm, double heightMm);
  Label& gap(double gapMm, double offsetMm = 0);
  Label& blackMark(double markMm, double offsetMm = 0);
  Label& speed(double inchesPerSecond);
  Label& density(int darkness);  // 0 to 15
  Label& clear();

  // --- Content, at x, y in dots ---------------------------------------------------
  // Printer-font text: fonts "1" to "8", "0" (scalable) or a stored font name.
  Label& text(int x, int y, std::string_view font, std::string_view content,
              const TextOptions& options = {});
  // A barcode type the printer knows ("128", "39", "EAN13", ...).
  Label& barcode(int x, int y, std::string_view type, std::string_view code, int height,
                 const BarcodeOptions& options = {});
  // Printer-font text wrapped at spaces (a word wider than the block at
  // characters) into lines WIDTH dots wide; the lines that fit HEIGHT print.
  Label& textBlock(int x, int y, int width, int height, std::string_view font,
                   std::string_view content, const TextBlockOptions& options = {});
  // A QR code of the data (UTF-8), its top left corner at x, y.
  Label& qrCode(int x, int y, std::string_view data, const QrCodeOptions& options = {});
  // The image as the compressed bitmap packet.
  Label& image(int x, int y, const Image& image, const ImageOptions& options = {});
  // The image as the uncompressed BITMAP command.
  Label& bitmap(int x, int y, const Image& image, const ImageOptions& options = {});
  // One line in an installed font family ("DejaVu Sans") at a size in dots,
  // drawn on the host and sent as the compressed bitmap packet; characters
  // the family lacks come from another installed font.
  Label& renderedText(int x, int y, std::string_view family, int dots, std::string_view content,
                      const FontOptions& options = {});
  // A page (counted from 1) drawn at the label's resolution, as an image.
  // Throws orvante::Error in a build without PDF support.
  Label& pdfPage(int x, int y, const PdfDocument& document, int page,
                 const ImageOptions& options = {});

  // --- Shapes, in dots ------------------------------------------------------------
  // A filled rectangle: a line is a bar one way thin.
  Label& bar(int x, int y, int width, int height);
  // The outline of the rectangle from x, y to xEnd, yEnd, inside it;
  // corners rounded by the radius when it is above 0.
  Label& box(int x, int y, int xEnd, int yEnd, int thickness = 1, int radius = 0);
  // The rectangle's dots turned over: printed ones blank, blank ones printed.
  Label& reverse(int x, int y, int width, int height);
  // The rectangle's dots blank.
  Label& erase(int x, int y, int width, int height);
  // A ring inside the square of the diameter whose top left is x, y.
  Label& circle(int x, int y, int diameter, int thickness = 1);

  // --- Output -------------------------------------------------------------------
  Label& print(int sets = 1, int copies = 1);
  Label& formFeed();
  Label& tearOff(bool on = true);
  // A command line of the caller's, sent as it stands; CR LF is added when
  // it lacks a line end.
  Label& raw(std::string_view line);
  // Stores a file (a font, an image, a program) in the printer under a name.
  Label& download(std::string_view name, ByteView data);

  // The commands of another label, made for the same resolution, as they
  // stand: a part built once and added to many labels.
  Label& add(const Label& part);

  const Bytes& bytes() const { return bytes_; }
  int dpi() const { return dpi_; }

 private:
  void append(std::string_view text, Encoding encoding = Encoding::Big5Hkscs);
  void append(ByteView bytes);
  // The compressed bitmap packet of a raster, closed by a line end.
  void appendPacket(int x, int y, int bytesPerRow, int rows, ByteView raster);

  int dpi_;
  std::optional<std::pair<int, int>> sizeInDots_;
  Bytes bytes_;
};

}  // namespace orvante

ORVANTE_API_END
