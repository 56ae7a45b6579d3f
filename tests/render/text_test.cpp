// Rendered text: the drawn line, its rotation, and what windowsfont and its
// delay twin put on the link.

#include <gtest/gtest.h>

#include <algorithm>

#include <orvante/lzss.hpp>

#include "links.hpp"
#include "log_capture.hpp"
#include "quiet_stdout.hpp"
#include "raster/rotation.hpp"
#include "raster/text_drawing.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

using Picture = std::vector<std::string>;

// The pixels with any alpha as '#', the rest as '.'.
Picture picture(const Image& image) {
  Picture rows(image.pixelHeight(), std::string(image.pixelWidth(), '.'));
  for (std::size_t i = 0; i * 4 < image.rgba().size(); ++i)
    if (image.rgba()[i * 4 + 3]) rows[i / image.pixelWidth()][i % image.pixelWidth()] = '#';
  return rows;
}

Image fromPicture(const Picture& rows) {
  Bytes rgba;
  for (const auto& row : rows)
    for (char c : row) rgba.insert(rgba.end(), {0, 0, 0, std::uint8_t(c == '#' ? 255 : 0)});
  return Image(static_cast<int>(rows[0].size()), static_cast<int>(rows.size()), std::move(rgba));
}

int ink(const Image& image) {
  int count = 0;
  for (const auto& row : picture(image)) count += std::count(row.begin(), row.end(), '#');
  return count;
}

// Ink is opaque black, and nothing is half drawn.
bool hardBlackInk(const Image& image) {
  for (std::size_t i = 0; i < image.rgba().size(); i += 4) {
    const std::uint8_t* p = &image.rgba()[i];
    if ((p[3] != 0 && p[3] != 255) || p[0] || p[1] || p[2]) return false;
  }
  return true;
}

// The row (or column) holding the most ink: where a T's bar is.
int heaviest(const Image& image, bool column) {
  const Picture rows = picture(image);
  const int lines = column ? image.pixelWidth() : image.pixelHeight();
  std::vector<int> counts(lines);
  for (int y = 0; y < image.pixelHeight(); ++y)
    for (int x = 0; x < image.pixelWidth(); ++x) counts[column ? x : y] += rows[y][x] == '#';
  return static_cast<int>(std::max_element(counts.begin(), counts.end()) - counts.begin());
}

// The ink alone, cut to its bounding box.
Picture inkOnly(const Image& image) {
  Picture rows = picture(image);
  std::erase_if(rows, [](const std::string& row) { return row.find('#') == std::string::npos; });
  std::size_t left = std::string::npos, right = 0;
  for (const auto& row : rows) left = std::min(left, row.find('#')), right = std::max(right, row.rfind('#') + 1);
  for (auto& row : rows) row = row.substr(left, right - left);
  return rows;
}

class RenderedText : public ::testing::Test {
 protected:
  RenderedText() : session(rig.platform()) {}

  Image draw(const std::string& content, const std::string& face = "DejaVuSans", int size = 24,
             int rotation = 0) {
    return session.fnDrawString(content, face, size, false, rotation);
  }
  Bytes sent() {
    Bytes all;
    for (const auto& write : rig.timeline->writes()) all.insert(all.end(), write.begin(), write.end());
    rig.timeline->clear();
    return all;
  }

  QuietStdout quiet;
  Rig rig;
  TestSession session;
};

}  // namespace

TEST(TextDrawing, SidesPadToMultiplesOfEightAndQuarterTurnsSwapThem) {
  EXPECT_EQ(text::padToEight(37.6), 40);
  EXPECT_EQ(text::padToEight(18.2), 24);
  EXPECT_EQ(text::padToEight(40.3), 40);
  EXPECT_EQ(text::padToEight(0.5), 0);

  // Clockwise as seen, rows running down.
  const Image source = fromPicture({"##......", "#.......", "........"});
  EXPECT_EQ(picture(raster::rotateImage(source, 90)),
            (Picture{".##", "..#", "...", "...", "...", "...", "...", "..."}));
  EXPECT_EQ(picture(raster::rotateImage(source, 180)),
            (Picture{"........", ".......#", "......##"}));
  EXPECT_EQ(picture(raster::rotateImage(source, 270)),
            (Picture{"...", "...", "...", "...", "...", "...", "#..", "##."}));
  EXPECT_EQ(raster::rotateImage(source, -90).pixelWidth(), 8);  // not a quarter turn by the rule
}

TEST_F(RenderedText, ALineIsHardBlackInkOnPaddedSidesInTheFaceAsked) {
  const Image hello = draw("Hello");
  EXPECT_TRUE(hardBlackInk(hello));
  EXPECT_EQ(hello.pixelHeight(), 32);  // DejaVu Sans at 24 points: a 27.9-point line
  EXPECT_EQ(hello.pixelWidth() % 8, 0);
  EXPECT_GT(ink(draw("Hello", "DejaVuSans-Bold")), ink(hello) + 50);
  // A name that is no face draws in the default sans-serif face (DejaVu
  // Sans here); a family name draws in its regular face.
  EXPECT_EQ(draw("Hello", "NoSuchFace-Regular").rgba(), hello.rgba());
  EXPECT_EQ(draw("Hello", "DejaVu Serif").rgba(), draw("Hello", "DejaVuSerif").rgba());
  // Characters DejaVu Sans lacks are the CJK face's own glyphs, not boxes.
  EXPECT_EQ(inkOnly(draw("中文", "DejaVuSans")), inkOnly(draw("中文", "WenQuanYiMicroHei")));
}

TEST_F(RenderedText, TheTopsOfTheLettersFollowTheRotation) {
  const Image upright = draw("T", "DejaVuSans", 40);
  ASSERT_LT(heaviest(upright, false), upright.pixelHeight() / 2);
  EXPECT_GT(heaviest(draw("T", "DejaVuSans", 40, 90), true), upright.pixelHeight() / 2);
  EXPECT_GT(heaviest(draw("T", "DejaVuSans", 40, 180), false), upright.pixelHeight() / 2);
  EXPECT_LT(heaviest(draw("T", "DejaVuSans", 40, 270), true), upright.pixelHeight() / 2);

  const Image slanted = draw("Hello", "DejaVuSans", 24, 45);
  EXPECT_EQ(slanted.pixelWidth(), draw("Hello").pixelWidth());
  EXPECT_EQ(slanted.pixelHeight(), draw("Hello").pixelHeight());
  EXPECT_GT(ink(slanted), 0);
  EXPECT_TRUE(hardBlackInk(slanted));
}

TEST_F(RenderedText, DegenerateTextDrawsNothingAndHugeTextIsRefused) {
  EXPECT_TRUE(draw("").empty());
  EXPECT_TRUE(draw("Hello", "DejaVuSans", 0).empty());
  EXPECT_TRUE(draw("Hello", "DejaVuSans", -12, 90).empty());
  EXPECT_GT(ink(draw("bad \xC3\x28 bytes")), 0);

  LogCapture log;
  EXPECT_EQ(session.windowsfont(0, 0, 5000, 0, 0, 0, "DejaVu Sans", "Hello, world"), -1);
  EXPECT_EQ(session.windowsfontFromX(0, 0, 40000, 0, 0, 0, "DejaVu Sans", "W", 1), -1);
  EXPECT_EQ(log.count("Name: ImageTooLarge"), 2) << log.dump();
}

TEST_F(RenderedText, WithoutALinkBothReturnMinusOneAfterTheirPause) {
  rig.timeline->clear();
  EXPECT_EQ(session.windowsfont(0, 0, 24, 0, 0, 0, "DejaVu Sans", "Hi"), -1);
  EXPECT_EQ(session.windowsfontFromX(0, 0, 24, 0, 0, 0, "DejaVu Sans", "Hi", 2), -1);
  EXPECT_EQ(rig.timeline->pauses(), (std::vector<double>{0.5, 2}));
  EXPECT_TRUE(rig.timeline->writes().empty());
}

namespace {

class WindowsFont : public RenderedText {
 protected:
  WindowsFont() { openTcp(session, rig, printer); }
  LoopbackPrinter printer;
};

}  // namespace

TEST_F(WindowsFont, SendsTheAlphaRasterCompressedAfterAHalfSecondPause) {
  for (int rotation : {0, 90}) {
    const Image image = draw("Label 42", "DejaVuSans-Bold", 30, rotation);
    EXPECT_EQ(session.windowsfont(300, 20, 30, rotation, 2, 0, "DejaVu Sans", "Label 42"), 1);
    EXPECT_EQ(rig.timeline->pauses(), std::vector<double>{0.5});
    const Bytes packet = sent();
    const int bytesPerRow = image.pixelWidth() / 8, rows = image.pixelHeight();
    EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 10),
              (Bytes{0x21, 0x53, 0x2C, 0x01, 0x14, 0x00, std::uint8_t(bytesPerRow), 0,
                     std::uint8_t(rows), 0}));
    EXPECT_EQ(lzss::decode(ByteView(packet).subspan(16, packet.size() - 18), bytesPerRow * rows),
              session.fnBitsFromImage(image));
    EXPECT_EQ(Bytes(packet.end() - 2, packet.end()), bytesOf("\r\n"));
    EXPECT_EQ(session.endCRLF.load(), "\r\n");
    // The underline flag changes nothing.
    EXPECT_EQ(session.windowsfont(300, 20, 30, rotation, 2, 1, "DejaVu Sans", "Label 42"), 1);
    EXPECT_EQ(sent(), packet);
  }
}

TEST_F(WindowsFont, TheDelayTwinSendsTheBitmapCommandUncompressed) {
  const Image image = draw("中文 OK", "DejaVuSans-Oblique", 20);
  const Bytes raster = session.fnBitsFromImage(image);
  ASSERT_GT(ink(image), 100);

  EXPECT_EQ(session.windowsfontFromX(10, 20, 20, 0, 1, 1, "DejaVu Sans", "中文 OK", 0.25), 1);
  EXPECT_EQ(rig.timeline->pauses(), std::vector<double>{0.25});
  const std::string header = "BITMAP 10,20," + std::to_string(image.pixelWidth() / 8) + "," +
                             std::to_string(image.pixelHeight()) + ",2,";
  Bytes expected = bytesOf(header);
  expected.insert(expected.end(), raster.begin(), raster.end());
  expected.insert(expected.end(), {'\r', '\n'});
  EXPECT_EQ(sent(), expected);
  EXPECT_EQ(session.commandbuffer.load(), header);
  EXPECT_EQ(session._writeData.load(), bytesOf(header));
  EXPECT_EQ(session.end.load(), bytesOf("\r\n"));
  EXPECT_EQ(session.endCRLF.load(), "\r\n");
}
