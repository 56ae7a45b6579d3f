// What draws into the image buffer: text, wrapped text blocks, barcodes,
// QR codes, bars, boxes, circles, and inverting or erasing a region.

#include <cmath>
#include <numbers>

#include "barcode.hpp"
#include "commands.hpp"
#include "printer_font.hpp"
#include "render_error.hpp"

namespace orvante::vprinter {

namespace {

constexpr int kFar = 100000;  // coordinates beyond this are surely mistakes

int rotation(const Arguments& args, std::size_t index) {
  const int degrees = args.integer(index, "rotation", 0, 270);
  if (degrees % 90 != 0) throw CommandWarning("rotation must be 0, 90, 180 or 270");
  return degrees;
}

Rect region(const Printer& printer, const Arguments& args) {
  return {printer.labelX(args.integer(0, "x", -kFar, kFar)),
          printer.labelY(args.integer(1, "y", -kFar, kFar)), args.integer(2, "width", 0, kFar),
          args.integer(3, "height", 0, kFar)};
}

// TEXT X,Y,"FONT",ROTATION,XMUL,YMUL[,ALIGNMENT],"CONTENT"
void text(Printer& printer, const CommandLine& command, JournalEntry&) {
  const Arguments args = printer.arguments(command);
  if (args.count() < 7) throw CommandWarning("TEXT needs 7 or 8 fields");
  TextRequest request;
  request.x = printer.labelX(args.integer(0, "x", -kFar, kFar));
  request.y = printer.labelY(args.integer(1, "y", -kFar, kFar));
  request.font = args.text(2, "font");
  request.rotation = rotation(args, 3);
  const bool scalable = request.font == "0" || printer.files.contains(request.font);
  const int largest = scalable ? 400 : 10;  // points, or times the cell
  request.xMultiplier = args.integer(4, "x multiplier", 1, largest);
  request.yMultiplier = args.integer(5, "y multiplier", 1, largest);
  if (args.count() >= 8) request.alignment = args.integer(6, "alignment", 0, 3);
  request.content = args.text(args.count() - 1, "content");
  cairo_font_face_t* face = nullptr;
  if (const auto file = printer.files.find(request.font); file != printer.files.end()) {
    face = printer.fonts.face(file->first, file->second);
  }
  drawText(printer.canvas.draw().get(), printer.dpi(), request, face);
}

// BLOCK X,Y,WIDTH,HEIGHT,"FONT",ROTATION,XMUL,YMUL,[SPACE,]ALIGNMENT,[FIT,]"CONTENT"
void block(Printer& printer, const CommandLine& command, JournalEntry&) {
  const Arguments args = printer.arguments(command);
  if (args.count() < 10 || args.count() > 12) throw CommandWarning("BLOCK needs 10 to 12 fields");
  BlockRequest request;
  TextRequest& text = request.text;
  text.x = printer.labelX(args.integer(0, "x", -kFar, kFar));
  text.y = printer.labelY(args.integer(1, "y", -kFar, kFar));
  request.width = args.integer(2, "width", 1, kFar);
  request.height = args.integer(3, "height", 1, kFar);
  text.font = args.text(4, "font");
  text.rotation = rotation(args, 5);
  const bool scalable = text.font == "0" || printer.files.contains(text.font);
  const int largest = scalable ? 400 : 10;
  text.xMultiplier = args.integer(6, "x multiplier", 1, largest);
  text.yMultiplier = args.integer(7, "y multiplier", 1, largest);
  std::size_t next = 8;
  if (args.count() >= 11) request.lineSpacing = args.integer(next++, "line spacing", 0, kFar);
  text.alignment = args.integer(next++, "alignment", 0, 3);
  // A FIT field (shrink the text until it fits) is read and not followed:
  // the lines that fit print, the rest is left out.
  if (args.count() == 12) args.integer(next++, "fit", 0, 1);
  text.content = args.text(args.count() - 1, "content");
  cairo_font_face_t* face = nullptr;
  if (const auto file = printer.files.find(text.font); file != printer.files.end()) {
    face = printer.fonts.face(file->first, file->second);
  }
  drawBlock(printer.canvas.draw().get(), printer.dpi(), request, face);
}

// BARCODE X,Y,"TYPE",HEIGHT,READABLE,ROTATION,NARROW,WIDE[,ALIGNMENT],"CODE"
void barcode(Printer& printer, const CommandLine& command, JournalEntry&) {
  const Arguments args = printer.arguments(command);
  if (args.count() < 9) throw CommandWarning("BARCODE needs 9 or 10 fields");
  BarcodeRequest request;
  request.x = printer.labelX(args.integer(0, "x", -kFar, kFar));
  request.y = printer.labelY(args.integer(1, "y", -kFar, kFar));
  request.type = args.text(2, "type");
  request.height = args.integer(3, "height", 1, 6000);
  request.readable = args.integer(4, "readable", 0, 3) != 0;
  request.rotation = rotation(args, 5);
  request.narrow = args.integer(6, "narrow", 1, 10);
  args.integer(7, "wide", 1, 30);  // zint keeps each symbology's own wide-bar ratio
  if (args.count() >= 10) request.alignment = args.integer(8, "alignment", 0, 3);
  request.content = args.text(args.count() - 1, "code");
  drawBarcode(printer.canvas.draw().get(), request);
}

// QRCODE X,Y,ECC,CELL,MODE,ROTATION[,MODEL,MASK],"DATA"
void qrCode(Printer& printer, const CommandLine& command, JournalEntry&) {
  const Arguments args = printer.arguments(command);
  if (args.count() < 7) throw CommandWarning("QRCODE needs 7 to 9 fields");
  QrRequest request;
  request.x = printer.labelX(args.integer(0, "x", -kFar, kFar));
  request.y = printer.labelY(args.integer(1, "y", -kFar, kFar));
  const std::string& ecc = args.text(2, "ECC level");
  request.ecc = ecc.size() == 1 ? ecc[0] : '?';
  request.cell = args.integer(3, "cell width", 1, 20);
  const std::string mode = upperCase(args.text(4, "mode"));
  if (mode != "A" && mode != "M") throw CommandWarning("mode must be A or M");
  request.manual = mode == "M";
  request.rotation = rotation(args, 5);
  if (args.count() >= 9) {
    const std::string mask = upperCase(args.text(7, "mask"));
    if (mask.size() == 2 && mask[0] == 'S' && mask[1] >= '0' && mask[1] <= '7') {
      request.mask = mask[1] - '0';
    }
  }
  request.content = args.text(args.count() - 1, "data");
  drawQrCode(printer.canvas.draw().get(), request);
}

void bar(Printer& printer, const CommandLine& command, JournalEntry&) {
  printer.canvas.fill(region(printer, printer.arguments(command)));
}

void reverse(Printer& printer, const CommandLine& command, JournalEntry&) {
  printer.canvas.invert(region(printer, printer.arguments(command)));
}

void erase(Printer& printer, const CommandLine& command, JournalEntry&) {
  printer.canvas.erase(region(printer, printer.arguments(command)));
}

void roundedRect(cairo_t* context, double x, double y, double width, double height, double r) {
  r = std::min({r, width / 2, height / 2});
  const double pi = std::numbers::pi;
  cairo_new_sub_path(context);
  cairo_arc(context, x + width - r, y + r, r, -pi / 2, 0);
  cairo_arc(context, x + width - r, y + height - r, r, 0, pi / 2);
  cairo_arc(context, x + r, y + height - r, r, pi / 2, pi);
  cairo_arc(context, x + r, y + r, r, pi, 3 * pi / 2);
  cairo_close_path(context);
}

// BOX X,Y,XEND,YEND,THICKNESS[,RADIUS]: the outline lies inside the corners.
void box(Printer& printer, const CommandLine& command, JournalEntry&) {
  const Arguments args = printer.arguments(command);
  const int x = printer.labelX(args.integer(0, "x", -kFar, kFar));
  const int y = printer.labelY(args.integer(1, "y", -kFar, kFar));
  const int xEnd = printer.labelX(args.integer(2, "x end", -kFar, kFar));
  const int yEnd = printer.labelY(args.integer(3, "y end", -kFar, kFar));
  const int thickness = args.integer(4, "thickness", 1, kFar);
  const int radius = args.integerOr(5, "radius", 0, kFar, 0);
  const int left = std::min(x, xEnd), top = std::min(y, yEnd);
  const int width = std::abs(xEnd - x), height = std::abs(yEnd - y);
  if (radius == 0) {
    Canvas& canvas = printer.canvas;
    canvas.fill({left, top, width, std::min(thickness, height)});
    canvas.fill({left, top + height - std::min(thickness, height), width, std::min(thickness, height)});
    canvas.fill({left, top, std::min(thickness, width), height});
    canvas.fill({left + width - std::min(thickness, width), top, std::min(thickness, width), height});
    return;
  }
  auto context = printer.canvas.draw();
  cairo_set_fill_rule(context.get(), CAIRO_FILL_RULE_EVEN_ODD);
  roundedRect(context.get(), left, top, width, height, radius);
  if (2 * thickness < width && 2 * thickness < height) {
    roundedRect(context.get(), left + thickness, top + thickness, width - 2 * thickness,
                height - 2 * thickness, std::max(0, radius - thickness));
  }
  cairo_fill(context.get());
}

// CIRCLE X,Y,DIAMETER,THICKNESS: (x, y) is the top-left of its square.
void circle(Printer& printer, const CommandLine& command, JournalEntry&) {
  const Arguments args = printer.arguments(command);
  const int x = printer.labelX(args.integer(0, "x", -kFar, kFar));
  const int y = printer.labelY(args.integer(1, "y", -kFar, kFar));
  const double diameter = args.integer(2, "diameter", 1, kFar);
  const double thickness = std::min<double>(args.integer(3, "thickness", 1, kFar), diameter / 2);
  auto context = printer.canvas.draw();
  cairo_set_line_width(context.get(), thickness);
  cairo_arc(context.get(), x + diameter / 2, y + diameter / 2, (diameter - thickness) / 2, 0,
            2 * std::numbers::pi);
  cairo_stroke(context.get());
}

}  // namespace

void addDrawingCommands(CommandTable& table) {
  table.emplace("TEXT", text);
  table.emplace("BLOCK", block);
  table.emplace("BARCODE", barcode);
  table.emplace("QRCODE", qrCode);
  table.emplace("BAR", bar);
  table.emplace("REVERSE", reverse);
  table.emplace("ERASE", erase);
  table.emplace("BOX", box);
  table.emplace("CIRCLE", circle);
}

}  // namespace orvante::vprinter
