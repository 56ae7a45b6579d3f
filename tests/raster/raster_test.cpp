// Images to rasters: the packers, the packet and what SendPic and its kin
// put on the link.

#include <gtest/gtest.h>

#include <orvante/lzss.hpp>

#include "links.hpp"
#include "raster/raster_formats.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

// An image of one colour (straight RGBA, premultiplied here).
Image filled(int width, int height, std::uint8_t r, std::uint8_t g, std::uint8_t b,
             std::uint8_t a = 255) {
  Bytes rgba;
  for (int i = 0; i < width * height; ++i) {
    for (std::uint8_t c : {r, g, b}) rgba.push_back(static_cast<std::uint8_t>(c * a / 255));
    rgba.push_back(a);
  }
  return Image(width, height, std::move(rgba));
}

Image pixels(int width, int height, const std::vector<std::array<std::uint8_t, 4>>& colours) {
  Bytes rgba;
  for (const auto& colour : colours) rgba.insert(rgba.end(), colour.begin(), colour.end());
  return Image(width, height, std::move(rgba));
}

struct Packet {
  Bytes header;
  Bytes raster;
};

// The packet a picture operation wrote, its raster expanded again.
Packet packetOf(const Bytes& written) {
  Packet packet;
  packet.header.assign(written.begin(), written.begin() + 16);
  const std::size_t bytesPerRow = written[6] | written[7] << 8;
  const std::size_t rows = written[8] | written[9] << 8;
  packet.raster = lzss::decode(ByteView(written).subspan(16), bytesPerRow * rows);
  return packet;
}

class RasterTest : public ::testing::Test {
 protected:
  RasterTest() : session(rig.platform()) {
    openTcp(session, rig, printer);
    ::testing::internal::CaptureStdout();  // the encoder's C functions trace there
  }
  ~RasterTest() override { ::testing::internal::GetCapturedStdout(); }

  // Runs a picture operation and gives the packet it wrote, and whether the
  // print command followed.
  Packet send(const std::function<void(TestSession&)>& operation, bool* printed = nullptr) {
    rig.timeline->clear();
    operation(session);
    const auto writes = rig.timeline->writes();
    EXPECT_FALSE(writes.empty());
    if (printed) *printed = writes.size() > 1 && writes.back() == bytesOf("\r\nPRINT 1\r\n");
    return packetOf(writes.front());
  }

  Rig rig;
  TestSession session;
  LoopbackPrinter printer;
};

}  // namespace

TEST_F(RasterTest, SendPicDrawsOnWhiteThresholdsAt128AndPrints) {
  bool printed = false;
  EXPECT_EQ(send([](auto& s) { s.SendPic(filled(8, 1, 255, 255, 255), 0, 0); }, &printed).raster,
            Bytes{0xFF});
  EXPECT_TRUE(printed);
  EXPECT_EQ(send([](auto& s) { s.SendPic(filled(8, 1, 0, 0, 0), 0, 0); }).raster, Bytes{0x00});
  // A 10-dot row takes two bytes; the 6 unused bits are light.
  EXPECT_EQ(send([](auto& s) { s.SendPic(filled(10, 2, 0, 0, 0), 0, 0); }).raster,
            (Bytes{0x00, 0x3F, 0x00, 0x3F}));
  // Grey exactly 128.0 is light; (128, 128, 128) weighs 127.99999999999999.
  EXPECT_EQ(send([](auto& s) {
              s.SendPic(pixels(2, 1, {{4, 210, 31, 255}, {128, 128, 128, 255}}), 0, 0);
            }).raster,
            Bytes{0xBF});
  // Transparent is white on the white fill.
  EXPECT_EQ(send([](auto& s) { s.SendPic(Image::transparent(8, 2), 0, 0); }).raster,
            (Bytes{0xFF, 0xFF}));
}

TEST_F(RasterTest, ThePacketHeaderCarriesPositionAndRasterSize) {
  const auto packet = send([](auto& s) { s.SendPic(filled(100, 50, 255, 255, 255), 300, 20); });
  EXPECT_EQ(packet.header,
            (Bytes{0x21, 0x53, 0x2C, 0x01, 0x14, 0x00, 0x0D, 0x00, 0x32, 0x00, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(packet.raster, Bytes(13 * 50, 0xFF));

  // No pixels: the header alone, with zero sizes, and still the print.
  bool printed = false;
  const auto empty = send([](auto& s) { s.SendPic(Image(), 5, 6); }, &printed);
  EXPECT_EQ(empty.header, (Bytes{0x21, 0x53, 5, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_TRUE(printed);
}

TEST_F(RasterTest, WithoutTheFillTransparentIsDarkAndTheThresholdIsTheCallers) {
  bool printed = true;
  EXPECT_EQ(
      send([](auto& s) { s.SendPic_NotPrint(Image::transparent(8, 1), 0, 0, 1); }, &printed).raster,
      Bytes{0x00});
  EXPECT_FALSE(printed);
  EXPECT_EQ(send([](auto& s) { s.SendPic_NotPrint(filled(8, 1, 0, 0, 0), 0, 0, 0); }).raster,
            Bytes{0xFF});
  EXPECT_EQ(
      send([](auto& s) { s.SendPic_NotPrint(filled(8, 1, 100, 100, 100), 0, 0, 101); }).raster,
      Bytes{0x00});
}

TEST_F(RasterTest, AMissingImageFileSendsADarkRectangle) {
  rig.timeline->clear();
  EXPECT_EQ(session.sendImagebyPath("/nonexistent/logo.png", 10, 20, 16, 3, 128), 1);
  const auto packet = packetOf(rig.timeline->writes().front());
  EXPECT_EQ(packet.header[2], 10);
  EXPECT_EQ(packet.raster, Bytes(2 * 3, 0x00));
  EXPECT_EQ(rig.timeline->writes().size(), 1u);
}

TEST_F(RasterTest, AnImageFileIsScaledToTheAskedSize) {
  // A 2 x 1 PNG, white then black, stretched to 16 x 4.
  const Image source = pixels(2, 1, {{255, 255, 255, 255}, {0, 0, 0, 255}});
  const Image scaled = session.scaleToSize(source, {16, 4});
  EXPECT_EQ(scaled.pixelWidth(), 16);
  EXPECT_EQ(scaled.pixelHeight(), 4);
  const auto packet = send([&](auto& s) { s.sendImagebyFile(source, 0, 0, 16, 4, 128); });
  EXPECT_EQ(packet.raster, (Bytes{0xFF, 0x00, 0xFF, 0x00, 0xFF, 0x00, 0xFF, 0x00}));
}

TEST(Raster, TheAlphaRasterMarksWhatWasDrawn) {
  Rig rig;
  TestSession session(rig.platform());
  std::vector<std::array<std::uint8_t, 4>> colours;
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 16; ++x)
      colours.push_back(x < 8 ? std::array<std::uint8_t, 4>{255, 0, 0, 255}
                              : std::array<std::uint8_t, 4>{0, 0, 0, 0});
  }
  EXPECT_EQ(session.fnBitsFromImage(pixels(16, 2, colours)), (Bytes{0x00, 0xFF, 0x00, 0xFF}));
  // A width that is no multiple of 8 fills (12 / 8) x 2 bytes and stops.
  EXPECT_EQ(session.fnBitsFromImage(Image::transparent(12, 2)), (Bytes{0xFF, 0xFF}));
  EXPECT_TRUE(session.fnBitsFromImage(Image()).empty());
}

TEST(Raster, BlackAndWhiteComparesTheMeanStrictlyWithTheDensity) {
  Rig rig;
  TestSession session(rig.platform());
  const Image image = pixels(3, 1, {{255, 255, 255, 255}, {128, 128, 128, 255}, {0, 0, 0, 128}});
  EXPECT_EQ(session.CovertToBlackAndWhiteScale(image, 1.0).rgba(),
            (Bytes{0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 128}));
  EXPECT_EQ(session.CovertToBlackAndWhiteScale(image, "0.5").rgba(),
            (Bytes{255, 255, 255, 255, 255, 255, 255, 255, 0, 0, 0, 128}));
  EXPECT_EQ(session.CovertToBlackAndWhiteScale(image, -0.1).rgba(),
            (Bytes{255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 128}));
  EXPECT_TRUE(session.CovertToBlackAndWhiteScale(Image(), 0.5).empty());
  // The size in points is used: a scale-2 image is drawn at half its pixels.
  const Image doubled(4, 2, Bytes(32, 255), 2);
  EXPECT_EQ(session.CovertToBlackAndWhiteScale(doubled, 0.5).pixelWidth(), 2);
}

TEST(Raster, TheBitmapCommandCarriesTheRasterUncompressed) {
  EXPECT_EQ(raster::bitmapCommand(10, 20, 2, 1, Bytes{0x00, 0xFF}),
            bytesOf(std::string("BITMAP 10,20,2,1,2,") + '\0' + "\xFF\r\n"));
}
