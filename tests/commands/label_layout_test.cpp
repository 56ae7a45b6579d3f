// Label layout and print commands: their bytes, pauses and results per link.

#include <gtest/gtest.h>

#include "links.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

struct Command {
  const char* name;
  std::function<std::int64_t(TestSession&)> send;
  std::string bytes;
  std::int64_t bleResult;
  bool keepsText;
};

const std::vector<Command>& layoutCommands() {
  static const std::vector<Command> all = {
      {"setup", [](TestSession& s) { return s.setup(40, 30, 4, 8, 0, 2, 0); },
       "SIZE 40 mm, 30 mm\r\nSPEED 4\r\nDENSITY 8\r\nGAP 2 mm,0 mm\r\n", -1, true},
      {"setup black mark", [](TestSession& s) { return s.setup(40, 30, 4, 8, 1, 3, 0); },
       "SIZE 40 mm, 30 mm\r\nSPEED 4\r\nDENSITY 8\r\nBLINE 3 mm,0 mm\r\n", -1, true},
      {"setup with the string no",
       [](TestSession& s) { return s.setup("40", "30", 4, 8, "no", 2.5, 0.5); },
       "SIZE 40 mm, 30 mm\r\nSPEED 4\r\nDENSITY 8\r\nGAP 2.5 mm,0.5 mm\r\n", -1, true},
      {"clearbuffer", [](TestSession& s) { return s.clearbuffer(); }, "CLS\r\n", -1, false},
      {"barcode",
       [](TestSession& s) { return s.barcode(100, 50, "128", 80, 1, 0, 2, 2, "ABC-123"); },
       "BARCODE 100, 50, \"128\", 80, 1, 0, 2, 2, \"ABC-123\"\r\n", -1, true},
      {"printerfont", [](TestSession& s) { return s.printerfont(20, 30, "3", 0, 1, 1, "Hello"); },
       "TEXT 20, 30, \"3\", 0, 1, 1, \"Hello\"\r\n", -1, true},
      {"printlabel", [](TestSession& s) { return s.printlabel(1, 2); }, "PRINT 1,2\r\n", 1, true},
      {"formfeed", [](TestSession& s) { return s.formfeed(); }, "FORMFEED\r\n", 1, false},
      {"nobackfeed", [](TestSession& s) { return s.nobackfeed(); }, "SET TEAR OFF\r\n", 1, false},
  };
  return all;
}

const std::vector<Command>& delayedCommands() {
  static const std::vector<Command> all = {
      {"setupForWidth", [](TestSession& s) { return s.setupForWidth(40, 30, 4, 8, 0, 2, 0, 0.5); },
       "SIZE 40 mm, 30 mm\r\nSPEED 4\r\nDENSITY 8\r\nGAP 2 mm,0 mm\r\n", -1, true},
      {"clearBuffer", [](TestSession& s) { return s.clearBuffer(0.5); }, "CLS\r\n", -1, false},
      {"barcodeFromX",
       [](TestSession& s) { return s.barcodeFromX(1, 2, "39", 4, 0, 90, 1, 3, "X", 0.5); },
       "BARCODE 1, 2, \"39\", 4, 0, 90, 1, 3, \"X\"\r\n", -1, true},
      {"printerfontFromX",
       [](TestSession& s) { return s.printerfontFromX(1, 2, "4", 180, 2, 3, "Y", 0.5); },
       "TEXT 1, 2, \"4\", 180, 2, 3, \"Y\"\r\n", -1, true},
      {"printerfont_UTF8",
       [](TestSession& s) { return s.printerfont_UTF8(1, 2, "4", 0, 1, 1, "Y", 0.5); },
       "TEXT 1, 2, \"4\", 0, 1, 1, \"Y\"\r\n", -1, true},
      {"printerfont_BIG5",
       [](TestSession& s) { return s.printerfont_BIG5(1, 2, "4", 0, 1, 1, "Y", 0.5); },
       "TEXT 1, 2, \"4\", 0, 1, 1, \"Y\"\r\n", -1, true},
      {"printerfont_GB2321",
       [](TestSession& s) { return s.printerfont_GB2321(1, 2, "4", 0, 1, 1, "Y", 0.5); },
       "TEXT 1, 2, \"4\", 0, 1, 1, \"Y\"\r\n", -1, true},
      {"printLabelWithNumberOfSets",
       [](TestSession& s) { return s.printLabelWithNumberOfSets(3, 1, 0.5); }, "PRINT 3,1\r\n", 1,
       true},
      {"formfeed:", [](TestSession& s) { return s.formfeed(0.5); }, "FORMFEED\r\n", 1, false},
      {"nobackfeed:", [](TestSession& s) { return s.nobackfeed(0.5); }, "SET TEAR OFF\r\n", 1,
       false},
  };
  return all;
}

}  // namespace

TEST(LabelLayout, EachCommandSendsItsLineInOneMessageOverTcp) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  std::string expected;
  for (const auto& command : layoutCommands()) {
    rig.timeline->clear();
    EXPECT_EQ(command.send(session), 1) << command.name;
    EXPECT_EQ(rig.timeline->script(), "write " + show(bytesOf(command.bytes))) << command.name;
    expected += command.bytes;
  }
  // TCP does not keep the text.
  EXPECT_EQ(session.commandbuffer.load(), std::nullopt);
  ASSERT_TRUE(printer.waitForBytes(expected.size()));
  EXPECT_EQ(textOf(printer.received()), expected);
}

TEST(LabelLayout, DelayTwinsPauseBeforeTheySend) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  for (const auto& command : delayedCommands()) {
    rig.timeline->clear();
    EXPECT_EQ(command.send(session), 1) << command.name;
    EXPECT_EQ(rig.timeline->script(), "pause 0.5 | write " + show(bytesOf(command.bytes)))
        << command.name;
  }
}

TEST(LabelLayout, WithoutALinkNothingIsSent) {
  Rig rig;
  TestSession session(rig.platform());
  for (const auto& command : layoutCommands()) EXPECT_EQ(command.send(session), -1) << command.name;
  rig.timeline->clear();
  EXPECT_EQ(session.clearBuffer(0.0), -1);
  EXPECT_EQ(rig.timeline->script(), "pause 0");
}

TEST(LabelLayout, OnBleSetupAndTextReportFailureThoughTheyWereSent) {
  Rig rig;
  TestSession session(rig.platform());
  auto printer = openBle(session, rig);
  std::string expected;
  for (const auto& command : layoutCommands()) {
    session.commandbuffer = std::nullopt;
    EXPECT_EQ(command.send(session), command.bleResult) << command.name;
    EXPECT_EQ(session.commandbuffer.load().has_value(), command.keepsText) << command.name;
    if (command.keepsText) {
      EXPECT_EQ(session.commandbuffer.load(), command.bytes);
    }
    expected += command.bytes;
  }
  EXPECT_EQ(textOf(bleBytes(*printer)), expected);
}

TEST(LabelLayout, TheAccessoryLinkKeepsTheTextAndTakesTheChunkedWriter) {
  Rig rig;
  TestSession session(rig.platform());
  openAccessory(session, rig);
  EXPECT_EQ(session.printlabel(2, 1), 1);
  EXPECT_EQ(session.commandbuffer.load(), "PRINT 2,1\r\n");
  EXPECT_EQ(rig.timeline->script(), "write \"PRINT 2,1\\r\\n\" | pause 0.1");
  ASSERT_TRUE(rig.accessories->lastPrinter()->waitForBytes(11));
}

TEST(LabelLayout, TcpWinsWhenSeveralLinksAreOpen) {
  Rig rig;
  TestSession session(rig.platform());
  auto blePrinter = openBle(session, rig);
  LoopbackPrinter printer;
  openTcp(session, rig, printer);
  EXPECT_EQ(session.setup(40, 30, 4, 8, 0, 2, 0), 1);
  ASSERT_TRUE(printer.waitForBytes(10));
  EXPECT_TRUE(blePrinter->writes().empty());
}

TEST(LabelLayout, TextIsEncodedAsEachVariantSays) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  const std::string chinese = "\xE4\xB8\xAD\xE6\x96\x87";
  session.printerfont(0, 0, "TSS24.BF2", 0, 1, 1, chinese);
  session.printerfont_UTF8(0, 0, "TSS24.BF2", 0, 1, 1, chinese);
  session.printerfont_BIG5(0, 0, "TSS24.BF2", 0, 1, 1, chinese);
  session.printerfont_GB2321(0, 0, "TSS24.BF2", 0, 1, 1, chinese);
  // A text the encoding lacks goes out as an empty message.
  session.printerfont_BIG5(0, 0, "1", 0, 1, 1, "caf\xC3\xA9");
  const auto writes = rig.timeline->writes();
  ASSERT_EQ(writes.size(), 5u);
  const std::string prefix = "TEXT 0, 0, \"TSS24.BF2\", 0, 1, 1, \"";
  EXPECT_EQ(writes[0], bytesOf(prefix + chinese + "\"\r\n"));
  EXPECT_EQ(writes[1], writes[0]);
  EXPECT_EQ(writes[2], bytesOf(prefix + "\xA4\xA4\xA4\xE5\"\r\n"));
  EXPECT_EQ(writes[3], bytesOf(prefix + "\xD6\xD0\xCE\xC4\"\r\n"));
  EXPECT_TRUE(writes[4].empty());
}
