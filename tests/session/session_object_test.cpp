// The session object: construction, link status, the connection guard, the
// version notice and the asynchronous accessory write.

#include <gtest/gtest.h>

#include <chrono>

#include "links.hpp"
#include "log_capture.hpp"

using namespace orvante;
using namespace orvante::testing;

TEST(SessionObject, FreshSessionHasNoLinkAfterItsOneSecondPause) {
  Rig rig;
  TestSession session(rig.platform());
  EXPECT_EQ(rig.timeline->script(), "pause 1");
  EXPECT_EQ(session.EthernetPortEnable, 0);
  EXPECT_EQ(session.MFI_port, 0);
  EXPECT_EQ(session.MFIPortEnable, 0);
  EXPECT_EQ(session.BLEPortEnable, 0);
  EXPECT_EQ(session.stream_status(), -1);
  EXPECT_NE(session.CM(), nullptr);
  EXPECT_EQ(session.readStreamHandle().load(), nullptr);
}

TEST(SessionObject, InitBlocksForOneSecondOfRealTime) {
  const auto start = std::chrono::steady_clock::now();
  ORVANTESDK session;
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST(SessionObject, StreamStatusReportsTheLinkThatOutputWouldTake) {
  Rig rig;
  TestSession session(rig.platform());
  auto central = rig.radio->central();

  // The TCP flag without a stream answers -1 before the other links are looked at.
  session.EthernetPortEnable = 1;
  session.MFI_port = 1;
  session.BLEPortEnable = 1;
  EXPECT_EQ(session.stream_status(), -1);

  // The accessory link reports its output stream.
  session.EthernetPortEnable = 0;
  session.setSession(openAccessorySession(rig));
  EXPECT_TRUE(eventually([&] { return session.stream_status() == 2; }));

  // BLE reports the radio: on is "open", off is "not open", the rest unusable.
  session.MFI_port = 0;
  const std::pair<ble::CentralState, int> expected[] = {
      {ble::CentralState::PoweredOn, 2},    {ble::CentralState::PoweredOff, 0},
      {ble::CentralState::Unknown, -1},     {ble::CentralState::Resetting, -1},
      {ble::CentralState::Unsupported, -1}, {ble::CentralState::Unauthorized, -1},
  };
  for (const auto& [state, status] : expected) {
    central->setState(state);
    EXPECT_EQ(session.stream_status(), status) << static_cast<int>(state);
  }
}

TEST(SessionObject, ConnectionGuardLooksOnlyAtTheTcpStreams) {
  Rig rig;
  TestSession session(rig.platform());
  session.setSession(openAccessorySession(rig));
  session.MFI_port = 1;
  try {
    session._checkIfConnecting();
    FAIL() << "no exception";
  } catch (const Exception& raised) {
    EXPECT_EQ(raised.name(), "NoConnectionException");
    EXPECT_EQ(raised.reason(), "Connection isn't estabilshed.");
  }

  auto streams = transport::connectSocketStreams("127.0.0.1", 9);
  session.iStream = streams.input;
  session.oStream = streams.output;
  EXPECT_NO_THROW(session._checkIfConnecting());
}

TEST(SessionObject, AboutAndTimeoutShowTheVersionNotice) {
  Rig rig;
  TestSession session(rig.platform());
  LogCapture log;
  std::vector<Notice> shown;
  setNoticeHandler([&](const Notice& notice) { shown.push_back(notice); });
  session.about();
  session.timeout(Value("sender"));
  setNoticeHandler(nullptr);

  ASSERT_EQ(shown.size(), 2u);
  for (const auto& notice : shown) {
    EXPECT_EQ(notice.title, "Version");
    EXPECT_EQ(notice.message, "1.0A");
    EXPECT_EQ(notice.cancelButton, "OK");
  }
  EXPECT_EQ(log.count("time out"), 1);

  // Without a handler the notice is logged.
  session.about();
  EXPECT_TRUE(log.has("Version: 1.0A"));
}

TEST(SessionObject, AsynchronousAccessoryWriteSendsTheFieldBufferNotTheArgument) {
  Rig rig;
  TestSession session(rig.platform());
  session.setSession(openAccessorySession(rig));
  session.MFI_port = 1;
  session.stream_buffer = bytesOf("FIELD");
  session.thread_operation(viewOf("ARGUMENT"));
  auto printer = rig.accessories->lastPrinter();
  ASSERT_TRUE(printer->waitForBytes(5));
  EXPECT_EQ(textOf(printer->received()), "FIELD");
}
