// Prints a demo set of labels through the published session to a printer
// at 127.0.0.1:PORT (the virtual printer, by scripts/run-demo): printer-font
// text and barcodes, an image, text in installed fonts, and a PDF page.
//
//   label_demo PORT [WORKDIR]
//
// The encoder's published console trace goes to standard output, so the
// demo says what it does on standard error.

#include <cairo-pdf.h>
#include <cairo.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <orvante/orvante.hpp>

namespace {

constexpr int kDpi = 203;  // 8 dots per mm

// A logo as an image: a ring, a bar and a diagonal, in black on white.
orvante::Image logo(int size) {
  orvante::Bytes rgba(static_cast<std::size_t>(size) * size * 4, 255);
  const double centre = size / 2.0;
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      const double r = std::hypot(x - centre, y - centre);
      const bool ring = r > size * 0.36 && r < size * 0.46;
      const bool bar = std::abs(y - centre) < size * 0.06 && r < size * 0.36;
      const bool diagonal = std::abs((x - y)) < size * 0.05 && r < size * 0.36;
      if (ring || bar || diagonal) {
        auto* pixel = &rgba[(static_cast<std::size_t>(y) * size + x) * 4];
        pixel[0] = pixel[1] = pixel[2] = 0;
      }
    }
  }
  return orvante::Image(size, size, std::move(rgba));
}

// A one-page packing slip of 50 x 30 mm, as a PDF made with Cairo.
std::string packingSlip(const std::string& folder) {
  const std::string path = folder + "/packing-slip.pdf";
  const double width = 50 / 25.4 * 72, height = 30 / 25.4 * 72;
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), width, height);
  cairo_t* cr = cairo_create(surface);
  cairo_set_source_rgb(cr, 0, 0, 0);
  cairo_set_line_width(cr, 1.5);
  cairo_rectangle(cr, 4, 4, width - 8, height - 8);
  cairo_stroke(cr);
  cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  cairo_set_font_size(cr, 11);
  cairo_move_to(cr, 10, 20);
  cairo_show_text(cr, "PACKING SLIP");
  cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, 8);
  const char* lines[] = {"Order 2026-11-0421", "3 x Thermal labels 50x30", "1 x Ribbon, wax"};
  for (int i = 0; i < 3; ++i) {
    cairo_move_to(cr, 10, 34 + i * 11);
    cairo_show_text(cr, lines[i]);
  }
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
  return path;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: label_demo PORT [WORKDIR]\n");
    return 2;
  }
  const int port = std::atoi(argv[1]);
  const std::string workdir = argc > 2 ? argv[2] : ".";
  orvante::setLogSink([](std::string_view) {});

  ORVANTESDK printer;
  if (printer.openport_ethernet("127.0.0.1", port) != 1) {
    std::fprintf(stderr, "label_demo: could not open the link to port %d\n", port);
    return 1;
  }
  if (auto name = printer.printer_name()) {
    std::fprintf(stderr, "printer: %s\n", orvante::textOf(*name).c_str());
  }

  // 1. A shipping label: printer fonts, a box, two barcodes.
  printer.setup(60, 40, 4, 8, 0, 2, 0);
  printer.clearbuffer();
  printer.sendcommand("BOX 8,8,472,312,3\r\n");
  printer.printerfont(24, 20, "4", 0, 1, 1, "ORVANTE");
  printer.printerfont(24, 60, "2", 0, 1, 1, "Ship to: Aisle 7, shelf C");
  printer.barcode(24, 100, "128", 90, 1, 0, 2, 4, "SHIP-000421");
  printer.barcode(250, 220, "EAN13", 50, 1, 0, 2, 4, "590123412345");
  printer.printlabel(1, 1);

  // 2. An image (thresholded at 128, then PRINT 1).
  printer.setup(40, 40, 4, 8, 0, 2, 0);
  printer.clearbuffer();
  printer.SendPic(logo(280), 20, 20);

  // 3. Text in installed fonts, Chinese through font fallback.
  printer.setup(60, 30, 4, 8, 0, 2, 0);
  printer.clearbuffer();
  printer.windowsfont(16, 16, 40, 0, 2, 0, "DejaVu Sans", "Fresh Basil");
  printer.windowsfont(16, 72, 28, 0, 1, 0, "DejaVu Serif", "Organic, 250 g");
  printer.windowsfont(16, 120, 40, 0, 0, 0, "DejaVu Sans", "新鮮羅勒 ¥12.50");
  printer.printlabel(1, 1);

  // 4. A PDF page at the printer's resolution (each page prints itself).
  printer.setup(50, 30, 4, 8, 0, 2, 0);
  printer.clearbuffer();
  printer.printPDFbyPath(packingSlip(workdir), 0, 0, kDpi);

  printer.closeport();
  std::fprintf(stderr, "sent 4 labels\n");
  return 0;
}
