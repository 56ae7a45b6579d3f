// The TCP link: opening, the open on port 9100, and the close operations
// with their pauses and flag order.

#include <gtest/gtest.h>

#include <chrono>

#include "links.hpp"
#include "log_capture.hpp"

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;

TEST(TcpPort, OpenSetsTheFlagAndSettlesForItsPause) {
  Rig rig;
  TestSession session(rig.platform());
  LoopbackPrinter printer;
  rig.timeline->clear();
  EXPECT_EQ(session.openport_ethernet("127.0.0.1", printer.port()), 1);
  EXPECT_EQ(rig.timeline->script(), "pause 1.5");
  EXPECT_EQ(session.EthernetPortEnable, 1);
  EXPECT_EQ(session.readStreamHandle().load(), session.iStream.load());
  EXPECT_EQ(session.writeStream.load(), session.oStream.load());
  EXPECT_TRUE(eventually([&] { return session.stream_status() == 2; }));
  EXPECT_NE(printer.connection(), nullptr);

  rig.timeline->clear();
  EXPECT_EQ(session.openport_ethernet_delay("127.0.0.1", printer.port(), 0), 1);
  EXPECT_EQ(session.openport_ethernet_delay("127.0.0.1", printer.port(), 0.25), 1);
  EXPECT_EQ(rig.timeline->script(), "pause 0 | pause 0.25");
  // Reopening drops the earlier streams without closing them.
  ASSERT_NE(printer.connection(2), nullptr);
  EXPECT_FALSE(printer.connection(0)->waitForHangUp(100ms));
}

TEST(TcpPort, AnUnreachableHostOpensThenFailsThroughTheErrorEvent) {
  for (std::string host : {"127.0.0.1", "printer.invalid"}) {
    Rig rig;
    auto gate = std::make_shared<EventGate>();
    rig.streams->holdEvents(gate);
    TestSession session(rig.platform());
    rig.timeline->clear();
    EXPECT_EQ(session.openport_ethernet(host, refusedPort()), 1) << host;
    EXPECT_EQ(rig.timeline->script(), "pause 1.5");
    EXPECT_TRUE(eventually([&] { return session.stream_status() == 7; })) << host;
    EXPECT_EQ(session.EthernetPortEnable, 1);
    gate->open();
    EXPECT_TRUE(eventually([&] { return session.stream_status() == -1; })) << host;
    EXPECT_EQ(session.EthernetPortEnable, 0);
    EXPECT_EQ(session.error, 1);
  }
}

TEST(TcpPort, NoStreamPairMeansMinusOneWithoutAFlag) {
  Rig rig;
  TestSession session(rig.platform());
  rig.timeline->clear();
  EXPECT_EQ(session.openport_ethernet("", 9100), -1);
  EXPECT_EQ(session.openport_ethernet("127.0.0.1", 70000), -1);
  EXPECT_EQ(session.EthernetPortEnable, 0);
  EXPECT_EQ(rig.timeline->script(), "");
}

// The opener thread needs real time to connect within openport's pause.
constexpr double kTenth = 0.1;

TEST(TcpPort, OpenportAlwaysUsesPort9100FromItsOwnThread) {
  Rig rig(kTenth);
  TestSession session(rig.platform());
  LoopbackPrinter printer;
  rig.streams->redirect(9100, "127.0.0.1", printer.port());
  rig.timeline->clear();
  EXPECT_EQ(session.openport("localhost:1234"), 1);
  const auto requests = rig.streams->requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0], std::make_pair(std::string("localhost:1234"), 9100));
  EXPECT_EQ(rig.timeline->script(), "pause 1.5");
  EXPECT_EQ(session.EthernetPortEnable, 1);
  EXPECT_NE(printer.connection(), nullptr);
}

TEST(TcpPort, OpenportThatCannotConnectClosesAgain) {
  Rig rig(kTenth);
  TestSession session(rig.platform());
  rig.streams->redirect(9100, "127.0.0.1", refusedPort());
  rig.timeline->clear();
  EXPECT_EQ(session.openport("127.0.0.1"), -1);
  EXPECT_EQ(rig.timeline->pauses().front(), 1.5);
  EXPECT_EQ(session.EthernetPortEnable, 0);
  EXPECT_EQ(session.stream_status(), -1);
}

TEST(TcpPort, ClosePausesAndClearsTheFlagInThePublishedOrder) {
  struct Case {
    std::function<std::int64_t(TestSession&)> close;
    std::string schedule;
    std::int64_t flagDuringPause;
  };
  const Case cases[] = {
      {[](TestSession& s) { return s.closeport(); }, "pause 1.5", 0},
      {[](TestSession& s) { return s.closeport(2.0); }, "pause 2", 1},
      {[](TestSession& s) { return s.closeport_withtime(0.5); }, "pause 0.5", 1},
  };
  for (const auto& current : cases) {
    TcpRig tcp;
    auto& [rig, session, printer] = tcp;
    std::int64_t flagDuringPause = -5;
    rig.clock->onPause([&](double) { flagDuringPause = session.EthernetPortEnable; });
    EXPECT_EQ(current.close(session), 1);
    EXPECT_EQ(rig.timeline->script(), current.schedule);
    EXPECT_EQ(flagDuringPause, current.flagDuringPause) << current.schedule;
    EXPECT_EQ(session.EthernetPortEnable, 0);
    EXPECT_EQ(session.iStream.load(), nullptr);
    EXPECT_EQ(session.oStream.load(), nullptr);
    EXPECT_EQ(session.readStreamHandle().load(), nullptr);
    EXPECT_EQ(session.writeStream.load(), nullptr);
    EXPECT_TRUE(printer.connection()->waitForHangUp());
  }
}

TEST(TcpPort, CloseWithoutALinkFailsAtOnce) {
  Rig rig;
  TestSession session(rig.platform());
  rig.timeline->clear();
  EXPECT_EQ(session.closeport(), -1);
  EXPECT_EQ(rig.timeline->script(), "");
}

TEST(TcpPort, CloseOnABleLinkDisconnectsItButReportsFailure) {
  Rig rig;
  auto peripheral = orvante::testing::FakePeripheral::printer("BLE printer");
  rig.radio->addPeripheral(peripheral);
  TestSession session(rig.platform());
  LogCapture log;
  EXPECT_EQ(session.openport_ble(peripheral), 1);

  EXPECT_EQ(session.closeport_withtime(0), -1);
  EXPECT_EQ(peripheral->state(), ble::PeripheralState::Connected);

  EXPECT_EQ(session.closeport(), -1);
  EXPECT_TRUE(log.has("disconnect-1"));
  EXPECT_TRUE(eventually([&] { return session.BLEPortEnable == 0; }));
  EXPECT_EQ(peripheral->state(), ble::PeripheralState::Disconnected);
}

TEST(TcpPort, CloseOfTheAccessoryLinkReleasesItsSession) {
  Rig rig;
  TestSession session(rig.platform());
  session.setSession(openAccessorySession(rig));
  session.MFI_port = 1;
  session.MFIPortEnable = 1;
  session.receivejudge = 1;
  session._readData = bytesOf("reply");
  session._writeData = bytesOf("work");
  rig.timeline->clear();

  EXPECT_EQ(session.closeport(), 1);
  EXPECT_EQ(rig.timeline->script(), "pause 1.5");
  EXPECT_EQ(session.MFI_port, 0);
  EXPECT_EQ(session.MFIPortEnable, 0);
  EXPECT_EQ(session.receivejudge, 0);
  EXPECT_EQ(session.session(), nullptr);
  EXPECT_EQ(session._readData.load(), std::nullopt);
  EXPECT_EQ(session._writeData.load(), std::nullopt);
  EXPECT_TRUE(rig.accessories->lastPrinter()->waitForHangUp());
}

TEST(TcpPort, EachCloseHandlesOneLink) {
  Rig rig;
  TestSession session(rig.platform());
  LoopbackPrinter printer;
  session.setSession(openAccessorySession(rig));
  session.MFI_port = 1;
  openTcp(session, rig, printer);

  EXPECT_EQ(session.closeport(0.0), 1);
  EXPECT_EQ(session.EthernetPortEnable, 0);
  EXPECT_EQ(session.MFI_port, 1);
  EXPECT_EQ(session.closeport(0.0), 1);
  EXPECT_EQ(session.MFI_port, 0);
  EXPECT_EQ(session.closeport(0.0), -1);
}

TEST(TcpPort, DestroyingTheSessionClosesItsLink) {
  Rig rig;
  LoopbackPrinter printer;
  {
    TestSession session(rig.platform());
    openTcp(session, rig, printer);
  }
  EXPECT_EQ(rig.timeline->pauses(), std::vector<double>{1.5});
  EXPECT_TRUE(printer.connection()->waitForHangUp());
}

TEST(TcpPort, APrinterVanishingInTheMiddleOfALargeWriteEndsTheLink) {
  Rig rig;
  LoopbackPrinter printer;
  TestSession session(rig.platform());
  openTcp(session, rig, printer);
  printer.connection()->resetAfter(100000);

  session.ethernet_writeStream(pattern(4 << 20));
  EXPECT_TRUE(eventually([&] { return session.EthernetPortEnable == 0; }));
  EXPECT_EQ(session.closeport(), -1);
  EXPECT_EQ(session.stream_status(), -1);
}
