// Printer queries: what they send, when they pause, and whose reply they
// return, over TCP, the accessory link and BLE.

#include <gtest/gtest.h>

#include "links.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

// Reads take a tenth of their pause for real, so that silence ends replies.
constexpr double kTenth = 0.1;

struct Query {
  const char* name;
  std::function<std::optional<Bytes>(TestSession&)> ask;
  std::string sent;
  std::string pauseBefore;
  std::string reply;
};

const std::vector<Query>& queries() {
  static const std::vector<Query> all = {
      {"printer_name", [](TestSession& s) { return s.printer_name(); }, "~!T", "pause 0.3 | ",
       "OV-203\r"},
      {"printer_codepage", [](TestSession& s) { return s.printer_codepage(); }, "~!I",
       "pause 0.3 | ", "8859-1\r"},
      {"printer_mileage", [](TestSession& s) { return s.printer_mileage(); }, "~!@", "pause 0.2 | ",
       "12.5\r"},
      {"printer_freememory", [](TestSession& s) { return s.printer_freememory(); }, "~!A",
       "pause 0.2 | ", "1048576\r"},
      {"printer_files", [](TestSession& s) { return s.printer_files(); }, "~!F", "pause 0.2 | ",
       "LOGO.BMP\rA.TTF\r\x1A"},
      {"printerstatus", [](TestSession& s) { return s.printerstatus(); }, "\x1B!?", "pause 0.2 | ",
       std::string(1, '\0')},
  };
  return all;
}

std::vector<std::pair<std::string, std::string>> allReplies() {
  std::vector<std::pair<std::string, std::string>> replies;
  for (const auto& query : queries()) replies.emplace_back(query.sent, query.reply);
  replies.emplace_back("DIAGNOSTIC INTERFACE NET\r\n\r\n", "{INTERFACE|NET}\r\n");
  return replies;
}

}  // namespace

TEST(PrinterQueries, EachQuerySendsItsBytesAfterItsPauseAndReturnsTheReply) {
  TcpRig tcp(kTenth, answering(allReplies()));
  auto& [rig, session, printer] = tcp;
  for (const auto& query : queries()) {
    rig.timeline->clear();
    EXPECT_EQ(query.ask(session), bytesOf(query.reply)) << query.name;
    EXPECT_EQ(rig.timeline->script(),
              query.pauseBefore + "write " + show(bytesOf(query.sent)) + " | pause 0.4 | pause 0.4")
        << query.name;
  }
}

TEST(PrinterQueries, AReplyBelongsToTheQueryEvenWhenItArrivesAtOnce) {
  TcpRig tcp(kTenth, answering(allReplies()));
  auto& [rig, session, printer] = tcp;
  for (int i = 0; i < 25; ++i) ASSERT_EQ(session.printer_mileage(), bytesOf("12.5\r")) << i;
}

TEST(PrinterQueries, WithoutALinkNothingIsSentAndStatusSaysMinusOne) {
  Rig rig;
  TestSession session(rig.platform());
  rig.timeline->clear();
  for (const auto& query : queries()) {
    if (query.sent == "\x1B!?") continue;
    EXPECT_EQ(query.ask(session), std::nullopt) << query.name;
  }
  EXPECT_EQ(session.sendcommand_getstring("X"), std::nullopt);
  EXPECT_EQ(rig.timeline->script(), "pause 1");
  rig.timeline->clear();
  EXPECT_EQ(session.printerstatus(), bytesOf("-1"));
  EXPECT_EQ(rig.timeline->script(), "pause 0.2");
}

TEST(PrinterQueries, ALinkErrorWhileWaitingGivesTheErrorMarkerOnce) {
  for (const char* query : {"~!T", "\x1B!?"}) {
    TcpRig tcp(kTenth, [query](orvante::testing::PrinterPeer& peer, ByteView, ByteView all) {
      if (textOf(all).ends_with(query)) peer.reset();
    });
    auto& [rig, session, printer] = tcp;
    const bool status = std::string(query) != "~!T";
    EXPECT_EQ(status ? session.printerstatus() : session.printer_name(), Bytes{0xFF}) << query;
    EXPECT_TRUE(eventually([&] { return session.EthernetPortEnable == 0; }));
    // The name query ends on the error event and consumes it; the status
    // query may end first on the stream's failed status.
    if (!status) {
      EXPECT_EQ(session.error, 0);
    }
  }
}

TEST(PrinterQueries, GetStringSendsTheTextThenALineEndAfterItsPause) {
  TcpRig tcp(kTenth, answering(allReplies()));
  auto& [rig, session, printer] = tcp;
  EXPECT_EQ(session.sendcommand_getstring("DIAGNOSTIC INTERFACE NET\r\n"),
            bytesOf("{INTERFACE|NET}\r\n"));
  EXPECT_EQ(rig.timeline->script(),
            "pause 1 | write \"DIAGNOSTIC INTERFACE NET\\r\\n\" | write \"\\r\\n\" | pause 0.4 | "
            "pause 0.4");
  rig.timeline->clear();
  EXPECT_EQ(session.sendcommand_getstring("DIAGNOSTIC INTERFACE NET\r\n", 0.25),
            bytesOf("{INTERFACE|NET}\r\n"));
  EXPECT_EQ(rig.timeline->pauses().front(), 0.25);
}

TEST(PrinterQueries, TheAccessoryLinkWaitsForItsStreamsThenReads) {
  Rig rig(kTenth);
  rig.accessories->setResponder(answering(allReplies()));
  TestSession session(rig.platform());
  openAccessory(session, rig);
  EXPECT_EQ(session.printer_name(), bytesOf("OV-203\r"));
  EXPECT_EQ(rig.timeline->script(), "write \"~!T\" | pause 0.4 | pause 0.4");

  // Streams not ready and an error reported: the marker, and the error is consumed.
  session.MFIPortEnable = 0;
  session.error = 1;
  EXPECT_EQ(session.printer_codepage(), Bytes{0xFF});
  EXPECT_EQ(session.error, 0);
  // The status query also watches the TCP output stream, which this link lacks.
  EXPECT_EQ(session.printerstatus(), Bytes{0xFF});
}

TEST(PrinterQueries, OnBleTheReplySettlesInTheReceiveBuffer) {
  Rig rig;
  TestSession session(rig.platform());
  auto printer = openBle(session, rig);
  auto central = rig.radio->central();
  printer->setResponder([](orvante::testing::FakePeripheral& self, const ble::Uuid&, ByteView data) {
    if (textOf(data) == "~!T")
      self.notify("49535343-1E4D-4BD9-BA61-23C647249616", bytesOf("OV-203\r"));
  });
  // Every pause lets the radio deliver what it has.
  rig.clock->onPause([&](double) { central->drain(); });
  EXPECT_EQ(session.printer_name(), bytesOf("OV-203\r"));
  // One pause after the send, in which the reply arrives; the first pass
  // sees it change, then the fourth unchanged pass ends the wait.
  EXPECT_EQ(rig.timeline->script(), "pause 1 | pause 1 | pause 1 | pause 1 | pause 1");
  EXPECT_EQ(bleBytes(*printer), bytesOf("~!T"));
}

TEST(PrinterQueries, OnASerialBridgeEachPassReadsTheReceiveCharacteristic) {
  Rig rig;
  TestSession session(rig.platform());
  auto printer = openBle(session, rig, "Lantronix");
  ASSERT_TRUE(session.IsXpico);
  const ble::Uuid receive("49535343-1E4D-4BD9-BA61-23C647249616");
  printer->setReadsDrain(receive, true);
  printer->setResponder([receive](orvante::testing::FakePeripheral& self, const ble::Uuid&, ByteView) {
    self.setValue(receive, Bytes{0x00});
  });
  auto central = rig.radio->central();
  rig.clock->onPause([&](double) { central->drain(); });
  EXPECT_EQ(session.printerstatus(), Bytes{0x00});
  EXPECT_EQ(printer->reads(receive), 5);
  EXPECT_FALSE(printer->notifying(receive));
  EXPECT_EQ(printer->writes().at(0).type, ble::WriteType::WithoutResponse);
}

TEST(PrinterQueries, OnBleGetStringPausesOneSecondPerThousandBytes) {
  for (const auto& [size, pause] :
       std::vector<std::pair<std::size_t, double>>{{2500, 2}, {999, 0}}) {
    Rig rig;
    TestSession session(rig.platform());
    auto printer = openBle(session, rig);
    session.sendcommand_getstring(std::string(size, 'q'));
    const auto pauses = rig.timeline->pauses();
    ASSERT_GE(pauses.size(), 2u);
    EXPECT_EQ(pauses[0], 1.0);
    EXPECT_EQ(pauses[1], pause) << size;
    EXPECT_EQ(bleBytes(*printer).size(), size + 2);
  }
}
