// orvante::Label's rendered text and PDF pages: packets that decode to the
// rasters of the session's windowsfont and PDF printing, and refusals with
// a reason.

#include <cairo-pdf.h>
#include <gtest/gtest.h>

#include <orvante/label.hpp>

#include "links.hpp"
#include "quiet_stdout.hpp"

using namespace orvante;
using namespace orvante::testing;

TEST(LabelRendering, RenderedTextIsTheSessionsPacket) {
  QuietStdout quiet;
  expectSamePacket(
      Label().renderedText(16, 24, "DejaVu Sans", 32, "Fresh Basil", {true, false, 90}).bytes(),
      sentBy([](auto& s) { s.windowsfont(16, 24, 32, 90, 2, 0, "DejaVu Sans", "Fresh Basil"); }),
      "\r\n");
  EXPECT_THROW(Label().renderedText(0, 0, "DejaVu Sans", 0, "x"), std::invalid_argument);
  EXPECT_THROW(Label().size(20, 10).renderedText(0, 0, "DejaVu Sans", 60, "Too wide for it"),
               std::invalid_argument);
}

#ifdef ORVANTE_TEST_WITH_PDF
TEST(LabelRendering, APdfPageIsTheSessionsPacket) {
  QuietStdout quiet;
  const std::string path = ::testing::TempDir() + "orvante-label-page.pdf";
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), 144, 72);
  cairo_t* cairo = cairo_create(surface);
  cairo_rectangle(cairo, 20, 10, 50, 30);
  cairo_fill(cairo);
  cairo_show_page(cairo);
  cairo_rectangle(cairo, 80, 30, 40, 20);
  cairo_fill(cairo);
  cairo_destroy(cairo);
  cairo_surface_destroy(surface);

  const auto document = PdfDocument::open(path);
  ASSERT_TRUE(document.pageSize(2));
  EXPECT_EQ(document.pageSize(2)->width, 144);
  EXPECT_EQ(document.pageSize(2)->height, 72);
  EXPECT_FALSE(document.pageSize(3));
  const Bytes label = Label().pdfPage(8, 4, document, 2).bytes();
  const Bytes published = sentBy([&](auto& s) { s.printPDFbyPath(path, 8, 4, 203, 2); });
  expectSamePacket(label, published, "\r\nPRINT 1\r\n");
  EXPECT_THROW(Label().pdfPage(0, 0, document, 3), std::invalid_argument);
  EXPECT_THROW(Label().pdfPage(0, 0, PdfDocument(), 1), std::invalid_argument);
}
#endif
