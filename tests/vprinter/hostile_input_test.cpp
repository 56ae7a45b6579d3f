// Bad input never stops the printer: each case is journaled as a warning
// and the next command works.

#include <random>

#include "printer_rig.hpp"

using namespace orvante;
using namespace orvante::vprinter;
using namespace orvante::vprinter::testing;

namespace {

// After the damage, the printer still answers and prints on a connection.
void expectServing(PrinterRig& rig, ConnectionId connection) {
  EXPECT_EQ(rig.feed("~!T", connection), "ORVANTE VP-1\r");
  rig.feed("CLS\r\nBAR 1,1,2,2\r\nPRINT 1\r\n", connection);
  const auto labels = rig.engine.takePrinted();
  ASSERT_EQ(labels.size(), 1u);
  EXPECT_EQ(labels[0].printedIn(0, 0, labels[0].width(), labels[0].height()), 4u);
}

TEST(HostileInput, PayloadCutOffByAClosedConnection) {
  PrinterRig rig;
  rig.feed("SIZE 10 mm, 10 mm\r\nBITMAP 0,0,4,4,0,");
  rig.feed(Bytes(5, 0x00));
  rig.engine.disconnect(1);
  EXPECT_NE(rig.last().find("the connection closed after 5 of 16 bytes"), std::string::npos)
      << rig.last();
  Bytes cut = packet(0, 0, 4, 40, Bytes(160, 0x00));
  cut.resize(cut.size() - 1);
  rig.feed(cut, 2);
  rig.engine.disconnect(2);
  EXPECT_NE(rig.last().find("closed inside the packet"), std::string::npos) << rig.last();
  expectServing(rig, 3);
}

TEST(HostileInput, PayloadsHoldOnlyWhatTheirLimitsAllow) {
  Options options;
  options.maxPayloadBytes = 1000;
  options.maxHeldPayloadBytes = 1500;
  PrinterRig rig(options);
  // A claim past the limit: its bytes are skipped and the connection goes on.
  rig.feed("DOWNLOAD \"BIG\",1001," + std::string(1001, 'z') + "\r\n");
  EXPECT_NE(rig.last().find("a payload of 1001 bytes is more than the 1000 one may claim"),
            std::string::npos)
      << rig.last();
  EXPECT_FALSE(rig.engine.insidePayload(1));

  // What a closed connection held is given back.
  rig.feed("DOWNLOAD \"D\",1000," + std::string(999, 'd'), 4);
  EXPECT_TRUE(rig.engine.insidePayload(4));
  rig.engine.disconnect(4);
  // Two unfinished payloads: the one whose bytes would pass 1500 held
  // bytes is dropped, the other is stored.
  rig.feed("DOWNLOAD \"A\",1000," + std::string(900, 'a'), 2);
  rig.feed("DOWNLOAD \"B\",1000," + std::string(700, 'b'), 3);
  rig.feed(std::string(300, 'b') + "\r\n", 3);
  EXPECT_NE(rig.last().find("unfinished payloads would hold more than 1500 bytes: dropped"),
            std::string::npos)
      << rig.last();
  EXPECT_NE(rig.last().find("\"length\":1000,"), std::string::npos) << rig.last();
  rig.feed(std::string(100, 'a') + "\r\n", 2);
  EXPECT_NE(rig.last().find("\"stored\":\"A\""), std::string::npos) << rig.last();
  rig.feed("DOWNLOAD \"C\",1000," + std::string(1000, 'c') + "\r\n", 3);
  EXPECT_NE(rig.last().find("\"stored\":\"C\""), std::string::npos) << rig.last();
  expectServing(rig, 3);
}

TEST(HostileInput, LzssStreamThatCannotDecodeIsDropped) {
  PrinterRig rig;
  rig.feed("SIZE 10 mm, 10 mm\r\n");
  // A match from ring position 4090, which nothing has filled yet.
  const Bytes unfilled{'!', 'S', 0, 0, 0, 0, 1, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0x00, 0xFA, 0xF0};
  rig.feed(unfilled + "\r\n");
  EXPECT_NE(rig.last().find("bad LZSS stream: a match refers to a ring position never filled"),
            std::string::npos)
      << rig.last();
  // A match of 18 bytes where only 4 are due.
  const Bytes overrun{'!', 'S', 0, 0, 0, 0, 2, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x00, 0x0F};
  rig.feed(overrun + "\r\n");
  EXPECT_NE(rig.last().find("a match runs past the expected size"), std::string::npos)
      << rig.last();
  expectServing(rig, 1);
}

TEST(HostileInput, OverlongLineIsSkippedToItsEnd) {
  PrinterRig rig;
  const std::string chunk(10000, 'A');
  for (int i = 0; i < 100; ++i) rig.feed(chunk);  // a million bytes, no line end
  rig.feed("\r\n");
  EXPECT_NE(rig.last().find("line longer than 32768 bytes"), std::string::npos) << rig.last();
  EXPECT_NE(rig.last().find("\"length\":1000000"), std::string::npos) << rig.last();
  expectServing(rig, 1);
}

TEST(HostileInput, ImagesLargerThanTheLabelAreCutOrDropped) {
  Options small;
  small.maxLabelWidthDots = 64;
  small.maxLabelHeightDots = 64;
  PrinterRig rig(small);
  rig.feed("SIZE 100 mm, 100 mm\r\n");
  EXPECT_NE(rig.last().find("label size limited to 64 x 64 dots"), std::string::npos);
  rig.feed("BITMAP 60,60,1,8,0," + Bytes(8, 0x00) + "\r\n");
  EXPECT_NE(rig.last().find("cut off there"), std::string::npos) << rig.last();
  rig.feed("BITMAP 70,0,1,8,0," + Bytes(8, 0x00) + "\r\n");
  EXPECT_NE(rig.last().find("outside the label: dropped"), std::string::npos) << rig.last();
  // A packet larger than any label is skipped by its stream's own end.
  rig.feed(packet(0, 0, 100, 10, Bytes(1000, 0x00)) + "\r\nPRINT 1\r\n");
  EXPECT_TRUE(rig.journaled("a raster of 1000 bytes is larger than any label"));
  const auto labels = rig.engine.takePrinted();
  ASSERT_EQ(labels.size(), 1u);
  EXPECT_EQ(labels[0].printedIn(0, 0, 64, 64), 16u);  // the cut BITMAP's corner
}

TEST(HostileInput, MalformedAndUnknownCommandsAreJournaled) {
  Options options;
  options.memoryBytes = 10;
  PrinterRig rig(options);
  const std::vector<std::pair<std::string, std::string>> cases{
      {"BAR 1,x,3,4", "y is not a number"},
      {"TEXT 1,2", "TEXT needs 7 or 8 fields"},
      {"TEXT 1,2,\"9\",0,1,1,\"a\"", "unknown font"},
      {"TEXT 1,2,\"3\",45,1,1,\"a\"", "rotation must be 0, 90, 180 or 270"},
      {"BARCODE 1,2,\"XYZ\",40,1,0,2,2,\"1\"", "unknown barcode type"},
      {"BARCODE 1,2,\"EAN13\",40,1,0,2,2,\"12AB\"", "EAN13 takes 12 to 13 digits"},
      {"QRCODE 1,2,Z,4,A,0,\"x\"", "ECC level must be L, M, Q or H"},
      {"SIZE 10 furlongs, 3", "unknown unit"},
      {"BITMAP 1,2,x,4,0,", "width in bytes is not a number"},
      {"DOWNLOAD \"BIG\",11,", "no room for 11 bytes: 10 free"},
      {"PRINT", "missing sets"},
  };
  for (const auto& [line, reason] : cases) {
    // The refused DOWNLOAD is skipped by its size: its bytes follow its comma.
    rig.feed(line + (line.starts_with("DOWNLOAD") ? std::string(11, 'z') : "\r\n"));
    EXPECT_TRUE(rig.journaled(reason)) << line << "\n" << rig.last();
  }
  rig.feed("FROBNICATE 1,2\r\n");
  EXPECT_NE(rig.last().find("\"command\":\"FROBNICATE\",\"arguments\":[\"1\",\"2\"],\"outcome\":\"unknown\""),
            std::string::npos)
      << rig.last();
  EXPECT_EQ(rig.feed("~!F"), "\x1a");
  expectServing(rig, 1);
}

TEST(HostileInput, GarbageNeverStopsThePrinter) {
  PrinterRig rig;
  std::mt19937 rng(11);
  for (int round = 0; round < 20; ++round) {
    Bytes garbage(5000);
    for (auto& byte : garbage) byte = static_cast<std::uint8_t>(rng());
    rig.feed(garbage, 1);
  }
  rig.engine.disconnect(1);
  rig.engine.takePrinted();
  expectServing(rig, 2);
}

}  // namespace

TEST(HostileInput, OnlyInkPastTheEdgeIsReported) {
  PrinterRig rig;
  // 10 mm is 80 dots: a 12-byte row at x 0 runs 16 dots past the edge.
  rig.feed("SIZE 10 mm, 10 mm\r\nCLS\r\n");
  Bytes blankPadding(12 * 2, 0x00);
  for (std::size_t row = 0; row < 2; ++row) {
    blankPadding[row * 12 + 10] = blankPadding[row * 12 + 11] = 0xFF;
  }
  rig.feed(bytesOf("BITMAP 0,0,12,2,0,") + blankPadding + "\r\n");
  EXPECT_FALSE(rig.journaled("runs past the label's edge")) << rig.last();
  rig.feed(bytesOf("BITMAP 0,4,12,2,0,") + Bytes(24, 0x00) + "\r\n");
  EXPECT_NE(rig.last().find("runs past the label's edge"), std::string::npos) << rig.last();
}
