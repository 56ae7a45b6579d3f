// PDF printing: pages made here with Cairo's PDF surface, printed to a
// loopback printer, their packets decoded and compared dot by dot.

#include <cairo-pdf.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include <orvante/lzss.hpp>

#include "links.hpp"
#include "log_capture.hpp"
#include "quiet_stdout.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

// A black rectangle on a page, in points from the page's top left.
struct Box {
  double x, y, width, height;
};

struct Page {
  double width, height;
  Box ink;
};

class ScratchDir {
 public:
  ScratchDir() {
    std::string pattern = std::filesystem::temp_directory_path() / "orvante-pdf-XXXXXX";
    path_ = mkdtemp(pattern.data());
  }
  ~ScratchDir() { std::filesystem::remove_all(path_); }
  std::string operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

void writePdf(const std::string& path, const std::vector<Page>& pages) {
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), pages[0].width, pages[0].height);
  cairo_t* cairo = cairo_create(surface);
  for (const auto& page : pages) {
    cairo_pdf_surface_set_size(surface, page.width, page.height);
    cairo_rectangle(cairo, page.ink.x, page.ink.y, page.ink.width, page.ink.height);
    cairo_fill(cairo);
    cairo_show_page(cairo);
  }
  cairo_destroy(cairo);
  cairo_surface_destroy(surface);
}

// A decoded bitmap packet: its header fields and raster (1 = light).
struct Bitmap {
  int x = 0, y = 0, bytesPerRow = 0, rows = 0;
  Bytes raster;
  bool dark(int column, int row) const {
    return !(raster[row * bytesPerRow + column / 8] & (0x80 >> (column % 8)));
  }
};

Bitmap bitmapOf(const Bytes& packet) {
  EXPECT_GE(packet.size(), 16u);
  Bitmap bitmap;
  bitmap.x = packet[2] | packet[3] << 8;
  bitmap.y = packet[4] | packet[5] << 8;
  bitmap.bytesPerRow = packet[6] | packet[7] << 8;
  bitmap.rows = packet[8] | packet[9] << 8;
  bitmap.raster = lzss::decode(ByteView(packet).subspan(16),
                               static_cast<std::size_t>(bitmap.bytesPerRow) * bitmap.rows);
  return bitmap;
}

// Every dot wholly inside the box (scaled to dots) is dark, every dot
// wholly outside is light; dots the edge crosses may be either.
void expectBox(const Bitmap& bitmap, int width, Box box, double sx, double sy) {
  ASSERT_EQ(bitmap.bytesPerRow, (width + 7) / 8);
  int wrong = 0;
  for (int row = 0; row < bitmap.rows; ++row) {
    for (int column = 0; column < width; ++column) {
      const double left = box.x * sx, right = (box.x + box.width) * sx;
      const double top = box.y * sy, bottom = (box.y + box.height) * sy;
      const bool inside = column >= left && column + 1 <= right && row >= top && row + 1 <= bottom;
      const bool outside = column + 1 <= left || column >= right || row + 1 <= top || row >= bottom;
      if ((inside && !bitmap.dark(column, row)) || (outside && bitmap.dark(column, row))) ++wrong;
    }
  }
  EXPECT_EQ(wrong, 0);
}

const Page kLabel{72, 36, {8, 4, 16, 8}};  // 1 x 0.5 inch, ink near the top left
const Bytes kPrintOne = bytesOf("\r\nPRINT 1\r\n");
const Bytes kClear = bytesOf("CLS\r\n");

class PdfPrinting : public ::testing::Test {
 protected:
  PdfPrinting() : session(rig.platform()) {
    openTcp(session, rig, printer);
    writePdf(label, {kLabel});
    writePdf(threePages, {{72, 36, {0, 0, 8, 8}}, {72, 36, {40, 0, 8, 8}}, {72, 36, {0, 24, 8, 8}}});
  }

  // What was sent since the last call, one entry per command: the chunks
  // of one bitmap packet are joined again.
  std::vector<Bytes> writes() {
    std::vector<Bytes> messages;
    bool joining = false;
    for (const auto& chunk : rig.timeline->writes()) {
      const bool command = chunk == kClear || chunk == kPrintOne;
      if (joining && !command) {
        messages.back().insert(messages.back().end(), chunk.begin(), chunk.end());
      } else {
        messages.push_back(chunk);
      }
      joining = !command;
    }
    rig.timeline->clear();
    return messages;
  }

  QuietStdout quiet;
  ScratchDir scratch;
  std::string label = scratch / "label.pdf";
  std::string threePages = scratch / "three.pdf";
  Rig rig;
  TestSession session;
  LoopbackPrinter printer;
};

}  // namespace

TEST_F(PdfPrinting, APageComesOutUprightAtThePrintersResolution) {
  for (int dpi : {72, 144, 203}) {
    SCOPED_TRACE(dpi);
    EXPECT_EQ(session.printPDFbyPath(label, 30, 40, dpi), 1);
    const auto sent = writes();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1], kPrintOne);
    const Bitmap bitmap = bitmapOf(sent[0]);
    EXPECT_EQ(bitmap.x, 30);
    EXPECT_EQ(bitmap.y, 40);
    const int width = static_cast<int>(std::ceil(72.0 * dpi / 72));
    EXPECT_EQ(bitmap.rows, static_cast<int>(std::ceil(36.0 * dpi / 72)));
    expectBox(bitmap, width, kLabel.ink, dpi / 72.0, dpi / 72.0);
  }
}

TEST_F(PdfPrinting, TheResizeFormsStretchThePageAndClearFirst) {
  EXPECT_EQ(session.printPDFbyPath_Resize(label, 0, 0, 100, 90, 203), 1);
  auto sent = writes();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0], kClear);
  EXPECT_EQ(sent[2], kPrintOne);
  Bitmap bitmap = bitmapOf(sent[1]);
  EXPECT_EQ(bitmap.rows, 90);
  expectBox(bitmap, 100, kLabel.ink, 100 / 72.0, 90 / 36.0);

  // Without a positive size the resolution decides, and CLS still comes.
  EXPECT_EQ(session.printPDFbyFile_Resize(PdfDocument::open(label), 0, 0, 0, 90, 144), 1);
  sent = writes();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0], kClear);
  bitmap = bitmapOf(sent[1]);
  EXPECT_EQ(bitmap.rows, 72);
  expectBox(bitmap, 144, kLabel.ink, 2, 2);
}

TEST_F(PdfPrinting, EveryPageIsALabelAndAPageNumberPicksOne) {
  const PdfDocument document = PdfDocument::open(threePages);
  EXPECT_EQ(session.getPDFPageCountbyFile(document), 3);
  EXPECT_EQ(session.getPDFPageCountbyPath(threePages), 3);

  EXPECT_EQ(session.printPDFbyFile(document, 0, 0, 72), 1);
  auto sent = writes();
  ASSERT_EQ(sent.size(), 6u);
  const Box inks[] = {{0, 0, 8, 8}, {40, 0, 8, 8}, {0, 24, 8, 8}};
  for (int page = 0; page < 3; ++page) {
    expectBox(bitmapOf(sent[page * 2]), 72, inks[page], 1, 1);
    EXPECT_EQ(sent[page * 2 + 1], kPrintOne);
  }

  EXPECT_EQ(session.printPDFbyPath(threePages, 0, 0, 72, 2), 1);
  sent = writes();
  ASSERT_EQ(sent.size(), 2u);
  expectBox(bitmapOf(sent[0]), 72, inks[1], 1, 1);
  EXPECT_EQ(session.printPDFbyPath_Resize(threePages, 0, 0, 144, 72, 72, 3), 1);
  sent = writes();
  ASSERT_EQ(sent.size(), 3u);
  expectBox(bitmapOf(sent[1]), 144, inks[2], 2, 2);
}

TEST_F(PdfPrinting, AMissingPageSendsAnEmptyOrWhiteLabel) {
  for (int page : {0, 4, -1}) {
    EXPECT_EQ(session.printPDFbyPath(threePages, 7, 0, 203, page), 1);
    const auto sent = writes();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0], (Bytes{0x21, 0x53, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  }
  EXPECT_EQ(session.printPDFbyPath_Resize(threePages, 0, 0, 16, 4, 203, 9), 1);
  const auto sent = writes();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(bitmapOf(sent[1]).raster, Bytes(2 * 4, 0xFF));
}

TEST_F(PdfPrinting, WhatIsNoReadablePdfHasNoPages) {
  const std::string garbage = scratch / "garbage.pdf";
  std::ofstream(garbage) << "%PDF-1.4\nthis is not a document\n";
  for (const auto& path : {garbage, scratch / "missing.pdf", scratch / ""}) {
    EXPECT_EQ(session.getPDFPageCountbyPath(path), 0);
    EXPECT_EQ(session.printPDFbyPath(path, 0, 0, 203), 1);
    EXPECT_EQ(session.printPDFbyPath_Resize(path, 0, 0, 100, 100, 203), 1);
  }
  EXPECT_TRUE(writes().empty());
  EXPECT_EQ(session.printPDFbyFile(PdfDocument(), 0, 0, 203), 1);
  EXPECT_EQ(PdfDocument::fromData({}).pageCount(), 0);
}

TEST_F(PdfPrinting, DamagedFilesPrintWhatCanBeReadAndNeverCrash) {
  std::ifstream in(threePages, std::ios::binary);
  const Bytes whole((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(PdfDocument::fromData(whole).pageCount(), 3);
  for (std::size_t cut : {whole.size() - 40, whole.size() / 2, std::size_t{200}, std::size_t{9}}) {
    Bytes damaged(whole.begin(), whole.begin() + cut);
    const PdfDocument document = PdfDocument::fromData(damaged);
    EXPECT_LE(document.pageCount(), 3);
    EXPECT_EQ(session.printPDFbyFile(document, 0, 0, 72), 1);
    EXPECT_EQ(writes().size(), 2u * document.pageCount());
  }
}

TEST_F(PdfPrinting, APageBeyondThePixelBudgetIsRefused) {
  const std::string poster = scratch / "poster.pdf";
  writePdf(poster, {kLabel, {14400, 14400, {0, 0, 72, 72}}});  // 200 x 200 inches
  LogCapture log;
  EXPECT_EQ(session.printPDFbyPath(poster, 0, 0, 600), -1);
  EXPECT_TRUE(log.has("Name: ImageTooLarge")) << log.dump();
  EXPECT_TRUE(log.has("Reason: a PDF page would need more than 100 megapixels or more than 32767 "
                      "pixels on a side"));
  EXPECT_EQ(writes().size(), 2u);  // the first page went out before
  EXPECT_EQ(session.printPDFbyPath(label, 0, 0, 2147483647), -1);
  EXPECT_EQ(session.printPDFbyPath_Resize(label, 0, 0, 20000, 20000, 203), -1);
  EXPECT_TRUE(writes().empty());
  // Nothing to draw at a resolution that is not positive.
  EXPECT_EQ(session.printPDFbyPath(label, 0, 0, -300), 1);
  EXPECT_EQ(bitmapOf(writes()[0]).rows, 0);
}
