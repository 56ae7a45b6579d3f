// Reading replies and the stream events of the TCP link.

#include <gtest/gtest.h>

#include "links.hpp"
#include "log_capture.hpp"

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;

namespace {

// Reads in this file take a tenth of their real pause, so that silence
// still ends a reply.
constexpr double kTenth = 0.1;

// Keeps the event handler away from the input, so the test reads it alone.
void silenceEvents(TestSession& session) {
  session.iStream.load()->removeFromRunLoop();
}

}  // namespace

TEST(ReplyReader, WithoutALinkGivesAnEmptyReplyAtOnce) {
  Rig rig;
  TestSession session(rig.platform());
  rig.timeline->clear();
  session.receivejudge = 1;
  EXPECT_TRUE(session.readStream().empty());
  EXPECT_EQ(rig.timeline->script(), "");
  EXPECT_EQ(session.receivejudge, 1);
  EXPECT_EQ(session._readData.load(), Bytes{});
}

TEST(ReplyReader, ReplyEndsAtTheFirstSilence) {
  TcpRig tcp(kTenth);
  auto& [rig, session, printer] = tcp;
  silenceEvents(session);

  auto peer = printer.connection();
  peer->send(viewOf("first"));
  peer->sendLater(bytesOf("second"), 600ms);
  ASSERT_TRUE(eventually([&] { return session.iStream.load()->hasBytesAvailable(); }));
  session.receivejudge = 1;
  EXPECT_EQ(textOf(session.readStream()), "first");
  EXPECT_EQ(rig.timeline->script(), "pause 0.4 | pause 0.4");
  EXPECT_EQ(session.receivejudge, 0);
}

TEST(ReplyReader, LongReplyIsCollectedIn512ByteReads) {
  TcpRig tcp(kTenth);
  auto& [rig, session, printer] = tcp;
  silenceEvents(session);

  const Bytes reply = pattern(1500);
  printer.connection()->send(reply);
  ASSERT_TRUE(eventually([&] { return session.iStream.load()->hasBytesAvailable(); }));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(session.readStream(), reply);
  EXPECT_EQ(session._readData.load(), reply);
  // Three reads of at most 512 bytes, then the silence.
  EXPECT_EQ(rig.timeline->script(), "pause 0.4 | pause 0.4 | pause 0.4 | pause 0.4");
}

TEST(ReplyReader, BytesNobodyWaitsForAreDrainedByTheEventHandler) {
  Rig rig(kTenth);
  TestSession session(rig.platform());
  LoopbackPrinter printer;
  LogCapture log;
  openTcp(session, rig, printer);

  printer.connection()->send(viewOf("unasked"));
  ASSERT_TRUE(eventually([&] { return session._readData.load() == bytesOf("unasked"); }));
  EXPECT_TRUE(log.has("NSStreamEventHasBytesAvailable"));
  EXPECT_TRUE(eventually([&] { return session.receivejudge == 0; }));
  // They are gone: a later read finds nothing.
  EXPECT_TRUE(session.readStream().empty());
}

TEST(ReplyReader, OpenAndSpaceEventsAreLoggedAndRecorded) {
  Rig rig;
  TestSession session(rig.platform());
  LoopbackPrinter printer;
  LogCapture log;
  session.error = 1;
  openTcp(session, rig, printer);
  EXPECT_TRUE(eventually([&] { return log.count("NSStreamEventOpenCompleted") == 2; }));
  EXPECT_TRUE(eventually([&] { return session.isAvailable.load(); }));
  EXPECT_TRUE(log.has("NSStreamEventHasSpaceAvailable"));
  EXPECT_EQ(session.error, 0);
}

TEST(ReplyReader, ABrokenLinkClearsTheTcpFlagAndClosesItsStreams) {
  for (bool reset : {true, false}) {
    Rig rig;
    TestSession session(rig.platform());
    LoopbackPrinter printer;
    LogCapture log;
    openTcp(session, rig, printer);
    session.MFI_port = 1;

    if (reset) {
      printer.connection()->reset();
    } else {
      printer.connection()->close();
    }
    ASSERT_TRUE(eventually([&] { return session.EthernetPortEnable == 0; })) << reset;
    EXPECT_EQ(session.error, 1);
    EXPECT_TRUE(log.has("NSStreamEventErrorOccurred"));
    EXPECT_EQ(session.oStream.load()->streamStatus(), StreamStatus::Closed);
    EXPECT_EQ(session.iStream.load()->streamStatus(), StreamStatus::Closed);
    // The accessory flag is left alone; without a TCP link nothing uses TCP.
    EXPECT_EQ(session.MFI_port, 1);
    session.MFI_port = 0;
    EXPECT_EQ(session.closeport(), -1);
  }
}
