// Raw commands: encodings, the stream-status guard of sendcommand:, the
// pause of sendcommand:delay: only, and the single write of raw bytes.

#include <gtest/gtest.h>

#include "links.hpp"

using namespace orvante;
using namespace orvante::testing;

TEST(RawCommands, TextGoesOutUnchangedInItsEncoding) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  const std::string ascii = "DIRECTION 1\r\n";
  EXPECT_EQ(session.sendcommand(ascii), 1);
  EXPECT_EQ(session.sendcommand_utf8(ascii), 1);
  EXPECT_EQ(session.sendcommand_gb2312(ascii), 1);
  EXPECT_EQ(session.sendcommand_big5(ascii), 1);
  const std::string chinese = "\xE4\xB8\xAD";
  session.sendcommand_gb2312(chinese);
  session.sendcommand_big5(chinese);
  const auto writes = rig.timeline->writes();
  ASSERT_EQ(writes.size(), 6u);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(writes[i], bytesOf(ascii));
  EXPECT_EQ(writes[4], (Bytes{0xD6, 0xD0}));
  EXPECT_EQ(writes[5], (Bytes{0xA4, 0xA4}));
}

TEST(RawCommands, OnlySendcommandDelayPauses) {
  Rig rig;
  TestSession session(rig.platform());
  rig.timeline->clear();
  EXPECT_EQ(session.sendcommand("CLS\r\n", 2), -1);
  EXPECT_EQ(rig.timeline->script(), "pause 2");

  LoopbackPrinter printer;
  openTcp(session, rig, printer);
  session.sendcommand_utf8("A", 5);
  session.sendcommand_gb2312("B", 5);
  session.sendcommand_big5("C", 5);
  session.sendcommandWithData(viewOf("D"), 5);
  session.sendcommand("E", 1);
  EXPECT_EQ(rig.timeline->script(),
            "write \"A\" | write \"B\" | write \"C\" | write \"D\" | pause 1 | write \"E\"");
}

TEST(RawCommands, RawBytesAreOneWriteWhileTextIsChunked) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  const Bytes data = pattern(5000);
  EXPECT_EQ(session.sendcommandWithData(data), 1);
  EXPECT_EQ(writeSizes(*rig.timeline), std::vector<std::size_t>{5000});
  rig.timeline->clear();
  EXPECT_EQ(session.sendcommand(std::string(5000, 'x')), 1);
  EXPECT_EQ(writeSizes(*rig.timeline), (std::vector<std::size_t>{2048, 2048, 904}));
  ASSERT_TRUE(printer.waitForBytes(10000));
}

TEST(RawCommands, OnlySendcommandAsksTheStreamStatus) {
  Rig rig;
  TestSession session(rig.platform());
  auto printer = openBle(session, rig);
  // The radio in a state that is neither on nor off: no usable link.
  rig.radio->central()->setState(ble::CentralState::Resetting);
  EXPECT_EQ(session.sendcommand("A"), -1);
  EXPECT_EQ(session.sendcommand_utf8("B"), 1);
  rig.radio->central()->setState(ble::CentralState::PoweredOn);
  EXPECT_EQ(session.sendcommand("C"), 1);
  EXPECT_EQ(textOf(bleBytes(*printer)), "BC");
}

TEST(RawCommands, TheAccessoryLinkTakesOneWriteOfTheWholeText) {
  Rig rig;
  TestSession session(rig.platform());
  openAccessory(session, rig);
  LoopbackPrinter printer;
  EXPECT_EQ(session.sendcommand(std::string(3000, 'z')), 1);
  EXPECT_EQ(writeSizes(*rig.timeline), std::vector<std::size_t>{3000});

  // With the TCP link open as well, only TCP receives.
  openTcp(session, rig, printer);
  for (auto send : {+[](TestSession& s) { return s.sendcommand("T"); },
                    +[](TestSession& s) { return s.sendcommand_big5("T"); },
                    +[](TestSession& s) { return s.sendcommandWithData(viewOf("T")); }}) {
    EXPECT_EQ(send(session), 1);
  }
  ASSERT_TRUE(printer.waitForBytes(3));
  EXPECT_EQ(textOf(printer.received()), "TTT");
  ASSERT_TRUE(rig.accessories->lastPrinter()->waitForBytes(3000));
  EXPECT_EQ(rig.accessories->lastPrinter()->receivedCount(), 3000u);
}
