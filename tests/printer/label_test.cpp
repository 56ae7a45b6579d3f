// orvante::Label: the same lines as the session's operations, bitmap
// packets that decode to the session's rasters, and bad arguments refused
// with a reason.

#include <gtest/gtest.h>

#include <orvante/lzss.hpp>

#include "links.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

Image stripes(int width, int height) {
  Bytes rgba(static_cast<std::size_t>(width) * height * 4, 255);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; x += 3) {
      for (int c = 0; c < 3; ++c) rgba[(static_cast<std::size_t>(y) * width + x) * 4 + c] = 0;
    }
  }
  return Image(width, height, std::move(rgba));
}

std::string refusal(const std::function<void()>& add) {
  try {
    add();
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "accepted";
}

}  // namespace

TEST(Label, EveryLineIsTheOneTheSessionSends) {
  EXPECT_EQ(Label().size(50, 30.5).speed(4).density(8).gap(2, 0).bytes(),
            sentBy([](auto& s) { s.setup(50, 30.5, 4, 8, 0, 2, 0); }));
  EXPECT_EQ(Label().size(40, 20).speed(3).density(0).blackMark(3, 1.5).bytes(),
            sentBy([](auto& s) { s.setup(40, 20, 3, 0, 1, 3, 1.5); }));
  EXPECT_EQ(Label().clear().bytes(), sentBy([](auto& s) { s.clearbuffer(); }));
  const Bytes font = pattern(3000);
  EXPECT_EQ(Label().download("FONT.TTF", font).bytes(),
            sentBy([&](auto& s) { s.downloadData(font, "FONT.TTF"); }));
  EXPECT_EQ(Label().barcode(24, 80, "128", "SHIP-000421", 80).bytes(),
            sentBy([](auto& s) { s.barcode(24, 80, "128", 80, 1, 0, 2, 2, "SHIP-000421"); }));
  EXPECT_EQ(Label().print(2, 3).formFeed().tearOff(false).bytes(), sentBy([](auto& s) {
              s.printlabel(2, 3);
              s.formfeed();
              s.nobackfeed();
            }));
}

TEST(Label, ShapesCodesAndTextBlocksAreOneLineEach) {
  const Label label = Label()
                          .qrCode(560, 20, "https://example.com/p/\"7\"", {'H', 6, 90})
                          .bar(10, 200, 780, 3)
                          .box(5, 5, 795, 475, 3)
                          .box(10, 10, 60, 60, 2, 8)
                          .reverse(20, 20, 100, 40)
                          .erase(0, 0, 8, 8)
                          .circle(300, 300, 50, 4)
                          .textBlock(20, 300, 400, 96, "3", "Deliver to the back door, please",
                                     {0, 1, 2, 4, Alignment::Center});
  EXPECT_EQ(textOf(label.bytes()),
            "QRCODE 560,20,H,6,A,90,\"https://example.com/p/\\[\"]7\\[\"]\"\r\n"
            "BAR 10,200,780,3\r\n"
            "BOX 5,5,795,475,3\r\n"
            "BOX 10,10,60,60,2,8\r\n"
            "REVERSE 20,20,100,40\r\n"
            "ERASE 0,0,8,8\r\n"
            "CIRCLE 300,300,50,4\r\n"
            "BLOCK 20,300,400,96,\"3\",0,1,2,4,2,\"Deliver to the back door, please\"\r\n");
  // A part built once goes on other labels as it stands.
  const Label frame = Label().box(0, 0, 100, 50, 2);
  EXPECT_EQ(Label().clear().add(frame).print().bytes(),
            bytesOf("CLS\r\nBOX 0,0,100,50,2\r\nPRINT 1,1\r\n"));
}

TEST(Label, PrinterFontTextInEachEncoding) {
  const std::string content = "價格 Price";
  EXPECT_EQ(Label().text(10, 20, "3", content).bytes(),
            sentBy([&](auto& s) { s.printerfont(10, 20, "3", 0, 1, 1, content); }));
  EXPECT_EQ(Label().text(10, 20, "TSS24.BF2", content, {90, 2, 2, Encoding::Big5}).bytes(),
            sentBy([&](auto& s) { s.printerfont_BIG5(10, 20, "TSS24.BF2", 90, 2, 2, content); }));
  EXPECT_EQ(Label().text(10, 20, "TSS24.BF2", content, {0, 1, 1, Encoding::Gb18030}).bytes(),
            sentBy([&](auto& s) { s.printerfont_GB2321(10, 20, "TSS24.BF2", 0, 1, 1, content); }));
  EXPECT_EQ(Label().text(10, 20, "3", content, {0, 1, 1, Encoding::Utf8}).bytes(),
            sentBy([&](auto& s) { s.printerfont_UTF8(10, 20, "3", 0, 1, 1, content); }));
}

TEST(Label, AnImageIsTheSessionsPacketClosedByALineEnd) {
  const Image picture = stripes(100, 40);
  const Bytes published = sentBy([&](auto& s) { s.SendPic(picture, 16, 8); });
  const Bytes label = Label().image(16, 8, picture).bytes();
  expectSamePacket(label, published, "\r\nPRINT 1\r\n");
  // The packet decodes to the raster: every third column dark.
  const Bytes raster = lzss::decode(ByteView(label).subspan(16, label.size() - 18), 13 * 40);
  EXPECT_EQ(raster[0], 0b01101101);
}

TEST(Label, BadArgumentsAreRefusedWithTheirReason) {
  EXPECT_EQ(refusal([] { Label().size(0, 30); }),
            "the label width must be a number above 0, not 0.000000");
  EXPECT_EQ(refusal([] { Label().barcode(0, 0, "QUX", "1", 50); }),
            "the printer knows no barcode type \"QUX\"");
  EXPECT_EQ(refusal([] { Label().size(10, 10).image(40, 0, stripes(60, 10)); }),
            "an image of 60 x 10 dots at 40,0 does not fit on the label of 80 x 80 dots");
  EXPECT_EQ(refusal([] { Label().image(0, 0, Image()); }),
            "the image is empty (it could not be read or decoded)");
  EXPECT_EQ(refusal([] { Label().text(0, 0, "3", "x", {45}); }),
            "the rotation must be 0, 90, 180 or 270, not 45");
  EXPECT_EQ(refusal([] { Label().density(16); }), "the density must be 0 to 15, not 16");
  EXPECT_EQ(refusal([] { Label().print(0); }), "sets and copies must be 1 or more");
  EXPECT_EQ(refusal([] { Label().qrCode(0, 0, "x", {'X'}); }),
            "the error correction must be L, M, Q or H, not 'X'");
  EXPECT_EQ(refusal([] { Label().size(10, 10).bar(70, 0, 20, 2); }),
            "a bar of 20 x 2 dots at 70,0 does not fit on the label of 80 x 80 dots");
  EXPECT_EQ(refusal([] { Label().box(50, 50, 10, 60); }),
            "a box ends right of and below where it starts, not at 10,60 from 50,50");
  EXPECT_EQ(refusal([] { Label().reverse(0, 0, 0, 5); }),
            "a reversed area must be 1 to 65535 dots each way, not 0 x 5");
  EXPECT_EQ(refusal([] { Label(300).add(Label(203)); }),
            "a part made for 203 dpi cannot go on a label of 300 dpi");
  // A refused element adds nothing.
  Label label;
  label.clear();
  EXPECT_THROW(label.speed(-1), std::invalid_argument);
  EXPECT_EQ(label.bytes(), bytesOf("CLS\r\n"));
  EXPECT_EQ(Label().raw("SET CUTTER OFF").raw("DIRECTION 1\r\n").bytes(),
            bytesOf("SET CUTTER OFF\r\nDIRECTION 1\r\n"));
}
