// Rendered text: the drawn line, its rotation, and what windowsfont and its
// delay twin put on the link.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include <orvante/lzss.hpp>

#include "links.hpp"
#include "log_capture.hpp"
#include "quiet_stdout.hpp"
#include "raster/rotation.hpp"
#include "raster/text_drawing.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

std::uint8_t alphaAt(const Image& image, int x, int y) {
  return image.rgba()[(static_cast<std::size_t>(y) * image.pixelWidth() + x) * 4 + 3];
}

// The opaque pixels, row by row, as '#' and '.'.
std::vector<std::string> picture(const Image& image) {
  std::vector<std::string> rows(image.pixelHeight(), std::string(image.pixelWidth(), '.'));
  for (int y = 0; y < image.pixelHeight(); ++y)
    for (int x = 0; x < image.pixelWidth(); ++x)
      if (alphaAt(image, x, y)) rows[y][x] = '#';
  return rows;
}

Image fromPicture(const std::vector<std::string>& rows) {
  Bytes rgba;
  for (const auto& row : rows)
    for (char c : row) rgba.insert(rgba.end(), {0, 0, 0, std::uint8_t(c == '#' ? 255 : 0)});
  return Image(static_cast<int>(rows[0].size()), static_cast<int>(rows.size()), std::move(rgba));
}

int ink(const Image& image) {
  int count = 0;
  for (std::size_t i = 3; i < image.rgba().size(); i += 4) count += image.rgba()[i] != 0;
  return count;
}

bool onlyHardEdges(const Image& image) {
  for (std::size_t i = 0; i < image.rgba().size(); i += 4) {
    const std::uint8_t* p = &image.rgba()[i];
    if (p[3] != 0 && p[3] != 255) return false;
    if (p[0] || p[1] || p[2]) return false;  // ink is black
  }
  return true;
}

// Where the ink of a letter is heaviest: the row or column with most pixels.
int heaviestRow(const Image& image) {
  int best = 0, most = -1;
  for (int y = 0; y < image.pixelHeight(); ++y) {
    int count = 0;
    for (int x = 0; x < image.pixelWidth(); ++x) count += alphaAt(image, x, y) != 0;
    if (count > most) most = count, best = y;
  }
  return best;
}

int heaviestColumn(const Image& image) {
  int best = 0, most = -1;
  for (int x = 0; x < image.pixelWidth(); ++x) {
    int count = 0;
    for (int y = 0; y < image.pixelHeight(); ++y) count += alphaAt(image, x, y) != 0;
    if (count > most) most = count, best = x;
  }
  return best;
}

class RenderedText : public ::testing::Test {
 protected:
  RenderedText() : session(rig.platform()) {}

  Image draw(const std::string& content, const std::string& face = "DejaVuSans", int size = 24,
             int rotation = 0) {
    return session.fnDrawString(content, face, size, false, rotation);
  }

  QuietStdout quiet;
  Rig rig;
  TestSession session;
};

}  // namespace

TEST(TextPadding, SidesRoundUpToMultiplesOfEightFromTheirWholePart) {
  EXPECT_EQ(text::padToEight(37.6), 40);
  EXPECT_EQ(text::padToEight(18.2), 24);
  EXPECT_EQ(text::padToEight(40.3), 40);
  EXPECT_EQ(text::padToEight(39.9), 40);
  EXPECT_EQ(text::padToEight(0.5), 0);
  EXPECT_EQ(text::padToEight(8), 8);
}

TEST(Rotation, TurnsClockwiseAndSwapsSidesOnlyAtQuarterTurns) {
  const Image source = fromPicture({"##......", "#.......", "........"});
  EXPECT_EQ(picture(raster::rotateImage(source, 90)),
            (std::vector<std::string>{".##", "..#", "...", "...", "...", "...", "...", "..."}));
  EXPECT_EQ(picture(raster::rotateImage(source, 180)),
            (std::vector<std::string>{"........", ".......#", "......##"}));
  EXPECT_EQ(picture(raster::rotateImage(source, 270)),
            (std::vector<std::string>{"...", "...", "...", "...", "...", "...", "#..", "##."}));
  // -90 is not a quarter turn by the rule: the size stays and corners clip.
  EXPECT_EQ(raster::rotateImage(source, -90).pixelWidth(), 8);
  EXPECT_TRUE(raster::rotateImage(Image(), 90).empty());
}

TEST_F(RenderedText, ALineIsBlackWithoutAntialiasingOnPaddedSides) {
  const Image hello = draw("Hello");
  EXPECT_GT(ink(hello), 50);
  EXPECT_TRUE(onlyHardEdges(hello));
  EXPECT_EQ(hello.pixelWidth() % 8, 0);
  EXPECT_EQ(hello.pixelHeight(), 32);  // DejaVu Sans at 24: a 27.9-point line
  EXPECT_GE(hello.pixelWidth(), 64);

  // Each face draws differently; a name that is no installed face draws in
  // the default sans-serif face, which the fixture makes DejaVu Sans.
  EXPECT_GT(ink(draw("Hello", "DejaVuSans-Bold")), ink(hello));
  EXPECT_EQ(draw("Hello", "NoSuchFace-Regular").rgba(), hello.rgba());
  EXPECT_EQ(draw("Hello", "DejaVu Serif").rgba(), draw("Hello", "DejaVuSerif").rgba());
}

TEST_F(RenderedText, TheTopsOfTheLettersFollowTheRotation) {
  const Image upright = draw("T", "DejaVuSans", 40);
  ASSERT_LT(heaviestRow(upright), upright.pixelHeight() / 2);  // the bar of the T
  const Image right = draw("T", "DejaVuSans", 40, 90);
  EXPECT_EQ(right.pixelWidth(), upright.pixelHeight());
  EXPECT_EQ(right.pixelHeight(), upright.pixelWidth());
  EXPECT_GT(heaviestColumn(right), right.pixelWidth() / 2);
  EXPECT_GT(heaviestRow(draw("T", "DejaVuSans", 40, 180)), upright.pixelHeight() / 2);
  EXPECT_LT(heaviestColumn(draw("T", "DejaVuSans", 40, 270)), upright.pixelHeight() / 2);

  const Image slanted = draw("Hello", "DejaVuSans", 24, 45);
  EXPECT_EQ(slanted.pixelWidth(), draw("Hello").pixelWidth());
  EXPECT_EQ(slanted.pixelHeight(), draw("Hello").pixelHeight());
  EXPECT_GT(ink(slanted), 0);
  EXPECT_TRUE(onlyHardEdges(slanted));
}

// The ink alone, cut to its bounding box.
std::vector<std::string> inkOnly(const Image& image) {
  auto rows = picture(image);
  std::erase_if(rows, [](const std::string& row) { return row.find('#') == std::string::npos; });
  std::size_t left = std::string::npos, right = 0;
  for (const auto& row : rows) {
    left = std::min(left, row.find('#'));
    right = std::max(right, row.rfind('#') + 1);
  }
  for (auto& row : rows) row = row.substr(left, right - left);
  return rows;
}

TEST_F(RenderedText, CharactersTheFaceLacksComeFromAnotherFont) {
  // The same glyphs as the CJK face's own, not boxes for missing ones.
  const Image chinese = draw("中文", "DejaVuSans");
  EXPECT_GT(ink(chinese), 100);
  EXPECT_EQ(inkOnly(chinese), inkOnly(draw("中文", "WenQuanYiMicroHei")));
}

TEST_F(RenderedText, DegenerateTextDrawsNothingOrIsRefused) {
  EXPECT_TRUE(draw("").empty());
  EXPECT_TRUE(draw("Hello", "DejaVuSans", 0).empty());
  EXPECT_TRUE(draw("Hello", "DejaVuSans", -12).empty());
  EXPECT_GT(ink(draw("bad \xC3\x28 bytes")), 0);
  EXPECT_THROW(draw("Hello, world", "DejaVuSans", 5000), Exception);
  EXPECT_THROW(draw("W", "DejaVuSans", 40000), Exception);
}

namespace {

struct Packet {
  Bytes header;
  Bytes raster;
  Bytes trailer;
};

// The compressed packet of windowsfont: header, LZSS stream, CR LF.
Packet packetOf(const Bytes& written) {
  Packet packet;
  packet.header.assign(written.begin(), written.begin() + 16);
  packet.trailer.assign(written.end() - 2, written.end());
  const std::size_t bytesPerRow = written[6] | written[7] << 8;
  const std::size_t rows = written[8] | written[9] << 8;
  packet.raster = lzss::decode(ByteView(written).subspan(16, written.size() - 18),
                               bytesPerRow * rows);
  return packet;
}

Bytes everything(const Timeline& timeline) {
  Bytes all;
  for (const auto& write : timeline.writes()) all.insert(all.end(), write.begin(), write.end());
  return all;
}

class WindowsFont : public RenderedText {
 protected:
  WindowsFont() { openTcp(session, rig, printer); }
  LoopbackPrinter printer;
};

}  // namespace

TEST_F(WindowsFont, SendsTheAlphaRasterCompressedAfterAHalfSecondPause) {
  const auto expected = session.fnBitsFromImage(draw("Label 42", "DejaVuSans-Bold", 30));
  EXPECT_EQ(session.windowsfont(300, 20, 30, 0, 2, 0, "DejaVu Sans", "Label 42"), 1);
  EXPECT_EQ(rig.timeline->pauses(), std::vector<double>{0.5});
  const Bytes written = everything(*rig.timeline);
  const Packet packet = packetOf(written);
  EXPECT_EQ(Bytes(packet.header.begin(), packet.header.begin() + 6),
            (Bytes{0x21, 0x53, 0x2C, 0x01, 0x14, 0x00}));
  EXPECT_EQ(packet.raster, expected);
  EXPECT_EQ(packet.trailer, bytesOf("\r\n"));
  EXPECT_EQ(session.endCRLF.load(), "\r\n");

  // The underline flag changes nothing.
  rig.timeline->clear();
  EXPECT_EQ(session.windowsfont(300, 20, 30, 0, 2, 1, "DejaVu Sans", "Label 42"), 1);
  EXPECT_EQ(everything(*rig.timeline), written);
}

TEST_F(WindowsFont, ARotatedLineSwapsRowsAndBytesPerRow) {
  const Image turned = draw("Hi", "DejaVuSans", 24, 90);
  EXPECT_EQ(session.windowsfont(0, 0, 24, 90, 0, 0, "DejaVu Sans", "Hi"), 1);
  const Packet packet = packetOf(everything(*rig.timeline));
  EXPECT_EQ(packet.header[6] | packet.header[7] << 8, turned.pixelWidth() / 8);
  EXPECT_EQ(packet.header[8] | packet.header[9] << 8, turned.pixelHeight());
  EXPECT_EQ(packet.raster, session.fnBitsFromImage(turned));
}

TEST_F(WindowsFont, TheDelayTwinSendsTheBitmapCommandUncompressed) {
  const Image image = draw("中文 OK", "DejaVuSans-Oblique", 20);
  const Bytes raster = session.fnBitsFromImage(image);
  ASSERT_NE(std::count(raster.begin(), raster.end(), 0xFF), std::ptrdiff_t(raster.size()));

  EXPECT_EQ(session.windowsfontFromX(10, 20, 20, 0, 1, 1, "DejaVu Sans", "中文 OK", 0.25), 1);
  EXPECT_EQ(rig.timeline->pauses(), std::vector<double>{0.25});
  const std::string header = "BITMAP 10,20," + std::to_string(image.pixelWidth() / 8) + "," +
                             std::to_string(image.pixelHeight()) + ",2,";
  Bytes expected = bytesOf(header);
  expected.insert(expected.end(), raster.begin(), raster.end());
  expected.insert(expected.end(), {'\r', '\n'});
  EXPECT_EQ(everything(*rig.timeline), expected);
  EXPECT_EQ(session.commandbuffer.load(), header);
  EXPECT_EQ(session._writeData.load(), bytesOf(header));
  EXPECT_EQ(session.end.load(), bytesOf("\r\n"));
  EXPECT_EQ(session.endCRLF.load(), "\r\n");
}

TEST_F(WindowsFont, EmptyTextSendsAnEmptyPacket) {
  EXPECT_EQ(session.windowsfont(5, 6, 24, 0, 0, 0, "DejaVu Sans", ""), 1);
  Bytes expected{0x21, 0x53, 5, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  const Bytes written = everything(*rig.timeline);
  EXPECT_EQ(Bytes(written.begin(), written.begin() + 16), expected);
  EXPECT_EQ(Bytes(written.end() - 2, written.end()), bytesOf("\r\n"));
}

TEST_F(RenderedText, WithoutALinkBothReturnMinusOneAfterTheirPause) {
  EXPECT_EQ(session.windowsfont(0, 0, 24, 0, 0, 0, "DejaVu Sans", "Hi"), -1);
  EXPECT_EQ(session.windowsfontFromX(0, 0, 24, 0, 0, 0, "DejaVu Sans", "Hi", 2), -1);
  EXPECT_EQ(rig.timeline->pauses(), (std::vector<double>{1.0, 0.5, 2}));  // 1.0: init
  EXPECT_TRUE(rig.timeline->writes().empty());
}

TEST_F(RenderedText, TextBeyondThePixelBudgetFailsWithoutPausing) {
  LogCapture log;
  rig.timeline->clear();
  EXPECT_EQ(session.windowsfont(0, 0, 5000, 0, 0, 0, "DejaVu Sans", "Hello, world"), -1);
  EXPECT_EQ(session.windowsfontFromX(0, 0, 40000, 0, 0, 0, "DejaVu Sans", "W", 1), -1);
  EXPECT_TRUE(rig.timeline->pauses().empty());
  EXPECT_EQ(log.count("Name: ImageTooLarge"), 2) << log.dump();
}
