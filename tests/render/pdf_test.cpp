// PDF printing: pages made here with Cairo's PDF surface, printed to a
// loopback printer, their packets decoded and compared dot by dot.

#include <cairo-pdf.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include <orvante/lzss.hpp>

#include "links.hpp"
#include "log_capture.hpp"
#include "quiet_stdout.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

// A black box on a page, in points from the page's top left.
struct Box {
  double x, y, width, height;
};
struct Page {
  double width, height;
  Box ink;
};

void writePdf(const std::string& path, const std::vector<Page>& pages) {
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), 1, 1);
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

// A bitmap packet, its raster decoded (a 1 bit is light).
struct Bitmap {
  explicit Bitmap(const Bytes& packet)
      : x(packet[2] | packet[3] << 8),
        bytesPerRow(packet[6] | packet[7] << 8),
        rows(packet[8] | packet[9] << 8),
        raster(lzss::decode(ByteView(packet).subspan(16), std::size_t(bytesPerRow) * rows)) {}
  bool dark(int column, int row) const {
    return !(raster[row * bytesPerRow + column / 8] & (0x80 >> (column % 8)));
  }
  int x, bytesPerRow, rows;
  Bytes raster;
};

// Every dot wholly inside the box, scaled to dots, is dark and every dot
// wholly outside is light; the dots its edges cross may be either.
void expectBox(const Bitmap& bitmap, int width, Box box, double sx, double sy) {
  ASSERT_EQ(bitmap.bytesPerRow, (width + 7) / 8);
  const double left = box.x * sx, right = (box.x + box.width) * sx;
  const double top = box.y * sy, bottom = (box.y + box.height) * sy;
  int wrong = 0;
  for (int row = 0; row < bitmap.rows; ++row) {
    for (int column = 0; column < width; ++column) {
      const bool inside = column >= left && column + 1 <= right && row >= top && row + 1 <= bottom;
      const bool outside = column + 1 <= left || column >= right || row + 1 <= top || row >= bottom;
      wrong += (inside && !bitmap.dark(column, row)) || (outside && bitmap.dark(column, row));
    }
  }
  EXPECT_EQ(wrong, 0);
}

const Page kLabel{72, 36, {8, 4, 16, 8}};  // 1 x 0.5 inch, ink near the top left
const Box kInks[] = {{0, 0, 8, 8}, {40, 0, 8, 8}, {0, 24, 8, 8}};
const Bytes kPrintOne = bytesOf("\r\nPRINT 1\r\n");
const Bytes kClear = bytesOf("CLS\r\n");

class PdfPrinting : public ::testing::Test {
 protected:
  PdfPrinting() : session(rig.platform()) {
    openTcp(session, rig, printer);
    writePdf(label, {kLabel});
    writePdf(threePages, {{72, 36, kInks[0]}, {72, 36, kInks[1]}, {72, 36, kInks[2]}});
  }
  ~PdfPrinting() override { std::filesystem::remove_all(dir); }

  // What was sent since the last call, one entry per command: the chunks
  // of one bitmap packet are joined again.
  std::vector<Bytes> sent() {
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
  std::string dir = [] {
    std::string pattern = std::filesystem::temp_directory_path() / "orvante-pdf-XXXXXX";
    return std::string(mkdtemp(pattern.data()));
  }();
  std::string label = dir + "/label.pdf", threePages = dir + "/three.pdf";
  Rig rig;
  TestSession session;
  LoopbackPrinter printer;
};

}  // namespace

TEST_F(PdfPrinting, APageComesOutUprightAtThePrintersResolution) {
  for (int dpi : {72, 144, 203}) {
    SCOPED_TRACE(dpi);
    EXPECT_EQ(session.printPDFbyPath(label, 30, 40, dpi), 1);
    const auto messages = sent();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[1], kPrintOne);
    const Bitmap bitmap(messages[0]);
    EXPECT_EQ(bitmap.x, 30);
    EXPECT_EQ(bitmap.rows, std::ceil(36.0 * dpi / 72));
    expectBox(bitmap, std::ceil(72.0 * dpi / 72), kLabel.ink, dpi / 72.0, dpi / 72.0);
  }
}

TEST_F(PdfPrinting, TheResizeFormsStretchThePageAndClearFirst) {
  EXPECT_EQ(session.printPDFbyPath_Resize(label, 0, 0, 100, 90, 203), 1);
  auto messages = sent();
  ASSERT_EQ(messages.size(), 3u);
  EXPECT_EQ(messages[0], kClear);
  EXPECT_EQ(messages[2], kPrintOne);
  EXPECT_EQ(Bitmap(messages[1]).rows, 90);
  expectBox(Bitmap(messages[1]), 100, kLabel.ink, 100 / 72.0, 90 / 36.0);

  // Without a positive size the resolution decides; CLS still comes first.
  EXPECT_EQ(session.printPDFbyFile_Resize(PdfDocument::open(label), 0, 0, 0, 90, 144), 1);
  messages = sent();
  ASSERT_EQ(messages.size(), 3u);
  EXPECT_EQ(messages[0], kClear);
  expectBox(Bitmap(messages[1]), 144, kLabel.ink, 2, 2);
}

TEST_F(PdfPrinting, EveryPageIsALabelAndAPageNumberPicksOne) {
  const PdfDocument document = PdfDocument::open(threePages);
  EXPECT_EQ(session.getPDFPageCountbyFile(document), 3);
  EXPECT_EQ(session.getPDFPageCountbyPath(threePages), 3);
  EXPECT_EQ(session.printPDFbyFile(document, 0, 0, 72), 1);
  auto messages = sent();
  ASSERT_EQ(messages.size(), 6u);
  for (int page = 0; page < 3; ++page) {
    expectBox(Bitmap(messages[page * 2]), 72, kInks[page], 1, 1);
    EXPECT_EQ(messages[page * 2 + 1], kPrintOne);
  }

  EXPECT_EQ(session.printPDFbyPath(threePages, 0, 0, 72, 2), 1);
  messages = sent();
  ASSERT_EQ(messages.size(), 2u);
  expectBox(Bitmap(messages[0]), 72, kInks[1], 1, 1);
  EXPECT_EQ(session.printPDFbyPath_Resize(threePages, 0, 0, 144, 72, 72, 3), 1);
  messages = sent();
  ASSERT_EQ(messages.size(), 3u);
  expectBox(Bitmap(messages[1]), 144, kInks[2], 2, 2);
}

TEST_F(PdfPrinting, MissingPagesAndUnreadableFilesPrintNothingOrEmptyLabels) {
  for (int page : {0, 4, -1}) {
    EXPECT_EQ(session.printPDFbyPath(threePages, 7, 0, 203, page), 1);
    EXPECT_EQ(sent(), (std::vector<Bytes>{{0x21, 0x53, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                                          kPrintOne}));
  }
  EXPECT_EQ(session.printPDFbyPath_Resize(threePages, 0, 0, 16, 4, 203, 9), 1);
  EXPECT_EQ(Bitmap(sent().at(1)).raster, Bytes(2 * 4, 0xFF));

  std::ofstream(dir + "/garbage.pdf") << "%PDF-1.4\nthis is not a document\n";
  for (const auto& path : {dir + "/garbage.pdf", dir + "/missing.pdf", dir}) {
    EXPECT_EQ(session.getPDFPageCountbyPath(path), 0);
    EXPECT_EQ(session.printPDFbyPath(path, 0, 0, 203), 1);
    EXPECT_EQ(session.printPDFbyPath_Resize(path, 0, 0, 100, 100, 203), 1);
  }
  EXPECT_EQ(session.printPDFbyFile(PdfDocument(), 0, 0, 203), 1);
  EXPECT_TRUE(sent().empty());
}

TEST_F(PdfPrinting, DamagedFilesAndHugePagesNeverCrash) {
  std::ifstream in(threePages, std::ios::binary);
  const Bytes whole((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(PdfDocument::fromData(whole).pageCount(), 3);
  for (std::size_t cut : {whole.size() - 40, whole.size() / 2, std::size_t{200}, std::size_t{9}}) {
    const PdfDocument document = PdfDocument::fromData(ByteView(whole).first(cut));
    EXPECT_EQ(session.printPDFbyFile(document, 0, 0, 72), 1);
    EXPECT_EQ(sent().size(), 2u * document.pageCount());
  }

  // 200 x 200 inches at 600 dpi: refused before anything is allocated.
  writePdf(dir + "/poster.pdf", {kLabel, {14400, 14400, {0, 0, 72, 72}}});
  LogCapture log;
  EXPECT_EQ(session.printPDFbyPath(dir + "/poster.pdf", 0, 0, 600), -1);
  EXPECT_TRUE(log.has("Name: ImageTooLarge")) << log.dump();
  EXPECT_EQ(sent().size(), 2u);  // the first page went out before
  EXPECT_EQ(session.printPDFbyPath(label, 0, 0, 2147483647), -1);
  EXPECT_EQ(session.printPDFbyPath_Resize(label, 0, 0, 20000, 20000, 203), -1);
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(session.printPDFbyPath(label, 0, 0, -300), 1);  // nothing to draw
  EXPECT_EQ(Bitmap(sent().at(0)).rows, 0);
}
