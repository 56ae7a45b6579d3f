// What lands on the label: shapes, rasters and packets at exact dots,
// text in its cells, barcodes as zint encodes them, the PNG.

#include <cairo.h>
#include <zint.h>

#include <memory>

#include <orvante/label.hpp>

#include "printer_rig.hpp"

using namespace orvante;
using namespace orvante::vprinter;
using namespace orvante::vprinter::testing;

namespace {

// Every printed dot of a label lies in the rectangle, and it has `count`.
void expectInkOnlyIn(const PrintedLabel& label, int x0, int y0, int x1, int y1,
                     std::size_t count) {
  EXPECT_EQ(label.printedIn(x0, y0, x1, y1), count);
  EXPECT_EQ(label.printedIn(0, 0, label.width(), label.height()), count);
}

TEST(Rendering, ShapesLandOnExactDots) {
  PrinterRig rig;
  rig.feed("SIZE 20 mm, 10 mm\r\nBAR 13,7,5,3\r\n");
  expectInkOnlyIn(rig.printOne(), 13, 7, 18, 10, 15);

  rig.feed("CLS\r\nREFERENCE 20,30\r\nBAR 0,0,4,4\r\n");
  expectInkOnlyIn(rig.printOne(), 20, 30, 24, 34, 16);

  rig.feed("CLS\r\nREFERENCE 0,0\r\nBAR 0,0,40,10\r\nREVERSE 10,0,10,10\r\nERASE 30,0,10,10\r\n");
  const PrintedLabel shaded = rig.printOne();
  EXPECT_EQ(shaded.printedIn(0, 0, 10, 10), 100u);
  EXPECT_EQ(shaded.printedIn(10, 0, 40, 10), 100u);  // 20..30 only

  rig.feed("CLS\r\nBOX 10,10,50,40,3\r\n");
  const PrintedLabel box = rig.printOne();
  EXPECT_TRUE(box.printed(10, 10) && box.printed(49, 39) && box.printed(12, 25));
  EXPECT_FALSE(box.printed(13, 25) || box.printed(30, 25) || box.printed(50, 40));
}

TEST(Rendering, DirectionOneTurnsThePrintedLabel) {
  PrinterRig rig;
  rig.feed("SIZE 10 mm, 5 mm\r\nDIRECTION 1\r\nBAR 0,0,3,2\r\n");
  const PrintedLabel label = rig.printOne();
  expectInkOnlyIn(label, 77, 38, 80, 40, 6);
}

TEST(Rendering, BitmapLandsWhereItIsPlacedInEachMode) {
  // A 16 x 4 raster, ink on its left half, drawn at an x that is no
  // multiple of 8 over a bar that covers its right half.
  const Bytes bits = raster(2, 4, [](int x, int) { return x < 8; });
  for (int mode = 0; mode <= 2; ++mode) {
    PrinterRig rig;
    rig.feed("SIZE 10 mm, 5 mm\r\nBAR 21,5,16,4\r\nBITMAP 13,5,2,4," + std::to_string(mode) +
             ",");
    rig.feed(bits + "\r\n");
    const PrintedLabel label = rig.printOne();
    EXPECT_EQ(label.printedIn(13, 5, 21, 9), 32u) << "mode " << mode;  // the raster's ink
    // Under the raster's blank half: overwritten, kept, kept (XOR with 0).
    EXPECT_EQ(label.printedIn(21, 5, 29, 9), mode == 0 ? 0u : 32u) << "mode " << mode;
    EXPECT_EQ(label.printedIn(29, 5, 37, 9), 32u) << "mode " << mode;
  }
  PrinterRig edge;  // a raster that starts left of the label
  edge.feed("SIZE 10 mm, 5 mm\r\nBITMAP -3,0,2,4,0,");
  edge.feed(bits + "\r\n");
  expectInkOnlyIn(edge.printOne(), 0, 0, 5, 4, 20);

  PrinterRig xor2;
  xor2.feed("SIZE 10 mm, 5 mm\r\nBAR 13,5,4,4\r\nBITMAP 13,5,2,4,2,");
  xor2.feed(bits + "\r\n");
  EXPECT_EQ(xor2.printOne().printedIn(13, 5, 21, 9), 16u);  // ink on ink clears
}

TEST(Rendering, PacketDecodesToTheRasterSent) {
  const Bytes image = raster(10, 30, [](int x, int y) { return (x * 7 + y * 3) % 5 < 2; });
  PrinterRig rig;
  rig.feed("SIZE 30 mm, 20 mm\r\nCLS\r\n");
  rig.feed(packet(33, 41, 10, 30, image) + "\r\nPRINT 1\r\n");
  const auto labels = rig.engine.takePrinted();
  ASSERT_EQ(labels.size(), 1u);
  std::size_t wrong = 0;
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 80; ++x) {
      const bool ink = !(image[y * 10 + x / 8] & (0x80 >> (x % 8)));
      wrong += labels[0].printed(33 + x, 41 + y) != ink;
    }
  }
  EXPECT_EQ(wrong, 0u);
  EXPECT_EQ(labels[0].printedIn(0, 0, 240, 160), labels[0].printedIn(33, 41, 113, 71));
}

// zint's module pattern of a Code 128 row (bit-packed rows).
std::vector<bool> zintModules(const std::string& content) {
  std::unique_ptr<zint_symbol, decltype(&ZBarcode_Delete)> symbol(ZBarcode_Create(),
                                                                   &ZBarcode_Delete);
  symbol->symbology = BARCODE_CODE128;
  EXPECT_LT(ZBarcode_Encode(symbol.get(), reinterpret_cast<const unsigned char*>(content.data()),
                            static_cast<int>(content.size())),
            ZINT_ERROR);
  std::vector<bool> modules;
  for (int i = 0; i < symbol->width; ++i) {
    modules.push_back((symbol->encoded_data[0][i >> 3] >> (i & 7)) & 1);
  }
  return modules;
}

TEST(Rendering, Code128BarsStartAtXAndCarryTheContent) {
  PrinterRig rig;
  rig.feed("SIZE 60 mm, 30 mm\r\nBARCODE 40,50,\"128\",60,0,0,3,3,\"ORV-42\"\r\n");
  const PrintedLabel label = rig.printOne();
  const int row = 80;
  int first = -1;
  for (int x = 0; x < label.width() && first < 0; ++x) {
    if (label.printed(x, row)) first = x;
  }
  EXPECT_EQ(first, 40);
  // Each module is 3 dots: read it at its middle dot.
  const auto modules = zintModules("ORV-42");
  ASSERT_EQ(modules.size(), 11u * 8 + 13);  // start, 6 characters, check, stop
  std::string read, expected;
  for (std::size_t i = 0; i < modules.size(); ++i) {
    read += label.printed(40 + 3 * static_cast<int>(i) + 1, row) ? '1' : '0';
    expected += modules[i] ? '1' : '0';
  }
  EXPECT_EQ(read, expected);
  // Start B and the stop pattern, independent of zint.
  EXPECT_EQ(read.substr(0, 11), "11010010000");
  EXPECT_EQ(read.substr(read.size() - 13), "1100011101011");
  // Bars are HEIGHT dots tall, straight, and nothing lies past the stop bar.
  for (int x = 40; x < 40 + 3 * static_cast<int>(modules.size()); ++x) {
    EXPECT_EQ(label.printed(x, 50), label.printed(x, 109)) << x;
  }
  EXPECT_EQ(label.printedIn(0, 0, 40, label.height()), 0u);
  EXPECT_EQ(label.printedIn(40, 110, label.width(), label.height()), 0u);
}

TEST(Rendering, FixedFontsStayInTheirCellsAndTurn) {
  PrinterRig rig;
  rig.feed("SIZE 50 mm, 50 mm\r\nTEXT 100,100,\"3\",0,1,1,\"HH\"\r\n");
  const PrintedLabel plain = rig.printOne();
  const std::size_t ink = plain.printedIn(100, 100, 132, 124);
  EXPECT_GT(plain.printedIn(100, 100, 116, 124), 40u);
  EXPECT_GT(plain.printedIn(116, 100, 132, 124), 40u);
  EXPECT_EQ(plain.printedIn(0, 0, 400, 400), ink);

  rig.feed("CLS\r\nTEXT 100,100,\"3\",0,2,3,\"HH\"\r\n");
  const PrintedLabel large = rig.printOne();
  EXPECT_EQ(large.printedIn(100, 100, 164, 172), large.printedIn(0, 0, 400, 400));
  EXPECT_GT(large.printedIn(0, 0, 400, 400), ink * 4);

  rig.feed("CLS\r\nTEXT 100,100,\"3\",90,1,1,\"HH\"\r\n");
  const PrintedLabel turned = rig.printOne();
  EXPECT_EQ(turned.printedIn(76, 100, 100, 132), turned.printedIn(0, 0, 400, 400));
  EXPECT_GT(turned.printedIn(76, 100, 100, 132), 80u);

  rig.feed("CLS\r\nTEXT 200,100,\"3\",0,1,1,3,\"HH\"\r\n");  // right-aligned on x
  const PrintedLabel right = rig.printOne();
  EXPECT_EQ(right.printedIn(168, 100, 200, 124), right.printedIn(0, 0, 400, 400));
}

TEST(Rendering, QrCodeHasItsFinderAtXY) {
  PrinterRig rig;
  rig.feed("SIZE 30 mm, 30 mm\r\nQRCODE 20,30,L,4,A,0,\"HELLO\"\r\n");
  const PrintedLabel label = rig.printOne();
  // Version 1 is 21 modules of 4 dots; the finder's outer ring is 7 modules.
  EXPECT_EQ(label.printedIn(20, 30, 48, 34), 112u);
  EXPECT_EQ(label.printedIn(24, 34, 44, 38), 0u);  // the finder's white ring
  EXPECT_EQ(label.printedIn(0, 0, 240, 240), label.printedIn(20, 30, 104, 114));
}

TEST(Rendering, TextBlocksWrapAtSpacesAndKeepTheLinesThatFit) {
  PrinterRig rig;
  // Font "3" is 16 x 24 dots: five characters a line of 80 dots, two lines
  // in 60 dots.
  rig.feed(Label().size(50, 50).textBlock(100, 100, 80, 60, "3", "AAAA BBBB CCCC").bytes());
  const PrintedLabel left = rig.printOne();
  EXPECT_GT(left.printedIn(100, 100, 164, 124), 100u);
  EXPECT_GT(left.printedIn(100, 124, 164, 148), 100u);
  EXPECT_EQ(left.printedIn(0, 0, 400, 400), left.printedIn(100, 100, 164, 148));

  // A word wider than the block goes on in pieces; right-aligned lines end
  // at its right edge: HHHHH, HH, HHH.
  rig.feed("CLS\r\n");
  rig.feed(Label()
               .textBlock(100, 100, 80, 200, "3", "HHHHHHH HHH", {0, 1, 1, 0, Alignment::Right})
               .bytes());
  const PrintedLabel right = rig.printOne();
  EXPECT_GT(right.printedIn(100, 100, 180, 124), 200u);
  EXPECT_EQ(right.printedIn(100, 124, 148, 148), 0u);
  EXPECT_GT(right.printedIn(148, 124, 180, 148), 40u);
  EXPECT_EQ(right.printedIn(100, 148, 132, 172), 0u);
  EXPECT_GT(right.printedIn(132, 148, 180, 172), 60u);
  EXPECT_EQ(right.printedIn(0, 172, 400, 400), 0u);
}

TEST(Rendering, ALabelsShapesLandOnTheirDots) {
  PrinterRig rig;
  rig.feed(Label()
               .size(30, 30)
               .circle(40, 40, 100, 6)
               .bar(0, 0, 10, 2)
               .reverse(0, 0, 5, 4)
               .erase(160, 160, 10, 10)
               .bytes());
  const PrintedLabel label = rig.printOne();
  // The ring stays inside its square, with its middle clear.
  EXPECT_EQ(label.printedIn(40, 40, 140, 140), label.printedIn(0, 4, 240, 240));
  EXPECT_TRUE(label.printed(40, 90) && label.printed(139, 90) && label.printed(90, 40));
  EXPECT_EQ(label.printedIn(60, 60, 120, 120), 0u);
  // The bar's left half turned blank, the dots below it turned printed.
  EXPECT_EQ(label.printedIn(0, 0, 5, 2), 0u);
  EXPECT_EQ(label.printedIn(5, 0, 10, 2), 10u);
  EXPECT_EQ(label.printedIn(0, 2, 5, 4), 10u);
}

TEST(Rendering, PngIsA1BitGreyImageOfTheLabel) {
  PrinterRig rig;
  rig.feed("SIZE 10 mm, 5 mm\r\nBAR 3,2,5,4\r\n");
  const Bytes png = rig.printOne().png();
  ASSERT_GT(png.size(), 33u);
  EXPECT_EQ(png[24], 1);  // bit depth
  EXPECT_EQ(png[25], 0);  // grey
  struct Reader {
    const Bytes& bytes;
    std::size_t at = 0;
  } reader{png};
  cairo_surface_t* surface = cairo_image_surface_create_from_png_stream(
      [](void* closure, unsigned char* data, unsigned int length) {
        auto* from = static_cast<Reader*>(closure);
        if (from->at + length > from->bytes.size()) return CAIRO_STATUS_READ_ERROR;
        std::copy_n(from->bytes.begin() + from->at, length, data);
        from->at += length;
        return CAIRO_STATUS_SUCCESS;
      },
      &reader);
  ASSERT_EQ(cairo_surface_status(surface), CAIRO_STATUS_SUCCESS);
  EXPECT_EQ(cairo_image_surface_get_width(surface), 80);
  EXPECT_EQ(cairo_image_surface_get_height(surface), 40);
  const auto pixel = [&](int x, int y) {
    const unsigned char* data = cairo_image_surface_get_data(surface);
    return *reinterpret_cast<const std::uint32_t*>(data + y * cairo_image_surface_get_stride(surface) +
                                                   x * 4) &
           0xFFFFFF;
  };
  EXPECT_EQ(pixel(3, 2), 0x000000u);
  EXPECT_EQ(pixel(7, 5), 0x000000u);
  EXPECT_EQ(pixel(8, 5), 0xFFFFFFu);
  EXPECT_EQ(pixel(2, 2), 0xFFFFFFu);
  cairo_surface_destroy(surface);
}

}  // namespace
