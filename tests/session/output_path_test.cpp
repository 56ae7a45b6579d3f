// The output path: link rule and the three writers.

#include <gtest/gtest.h>

#include "links.hpp"
#include "log_capture.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

// An output stream stuck in the opening state, as towards a host that
// neither answers nor refuses.
class StuckOpening final : public OutputStream {
 public:
  void open() override {}
  void close() override { status_ = StreamStatus::Closed; }
  StreamStatus streamStatus() const override { return status_; }
  std::string streamError() const override { return {}; }
  void setDelegate(StreamDelegate*) override {}
  void scheduleInRunLoop() override {}
  void removeFromRunLoop() override {}
  bool hasSpaceAvailable() override { return false; }
  std::int64_t write(const std::uint8_t*, std::size_t) override { return -1; }

 private:
  std::atomic<StreamStatus> status_{StreamStatus::Opening};
};

}  // namespace

TEST(OutputPath, TcpWriterSendsChunksOfAtMost2048Bytes) {
  for (const auto& [size, chunks] : std::vector<std::pair<std::size_t, std::vector<std::size_t>>>{
           {2048, {2048}}, {2049, {2048, 1}}, {5000, {2048, 2048, 904}}, {0, {0}}}) {
    TcpRig tcp;
    auto& [rig, session, printer] = tcp;
    const Bytes data = pattern(size);
    session._printWithStream(session.oStream.load(), data);
    EXPECT_EQ(writeSizes(*rig.timeline), chunks) << size;
    EXPECT_EQ(session.buffer.load(), data);
    ASSERT_TRUE(printer.waitForBytes(size));
    EXPECT_EQ(printer.received(), data);
  }
}

TEST(OutputPath, TcpLinkWinsOverTheAccessoryFlag) {
  Rig rig;
  TestSession session(rig.platform());
  LoopbackPrinter printer;
  openAccessory(session, rig);
  openTcp(session, rig, printer);
  // The stream argument never picks the link; the flags do.
  session._printWithStream(session.session()->outputStream(), viewOf("CLS\r\n"));
  ASSERT_TRUE(printer.waitForBytes(5));
  EXPECT_EQ(textOf(printer.received()), "CLS\r\n");
  EXPECT_EQ(rig.accessories->lastPrinter()->receivedCount(), 0u);
}

TEST(OutputPath, WithoutALinkNothingIsWrittenOrKept) {
  Rig rig;
  TestSession session(rig.platform());
  session._printWithStream(nullptr, viewOf("CLS\r\n"));
  session.ethernet_writeStream(viewOf("CLS\r\n"));
  EXPECT_EQ(session.buffer.load(), std::nullopt);
  EXPECT_TRUE(rig.timeline->writes().empty());
}

TEST(OutputPath, AccessoryWritersChunkAndPauseOrWriteOnce) {
  Rig rig;
  TestSession session(rig.platform());
  openAccessory(session, rig);
  auto printer = rig.accessories->lastPrinter();

  const Bytes big = pattern(5000);
  EXPECT_EQ(session.mfi_writeStream(big), 1);
  EXPECT_EQ(rig.timeline->script(),
            "write 2048 bytes | pause 0.1 | write 2048 bytes | pause 0.1 | write 904 bytes | "
            "pause 0.1");
  rig.timeline->clear();

  EXPECT_EQ(session.mfi_writeStream({}), 1);
  EXPECT_EQ(rig.timeline->script(), "write \"\" | pause 0.1");
  rig.timeline->clear();

  const Bytes single = pattern(3000);
  EXPECT_EQ(session.MFI_OutStream(single), 1);
  EXPECT_EQ(rig.timeline->script(), "write 3000 bytes");

  ASSERT_TRUE(printer->waitForBytes(8000));
  Bytes expected = big;
  expected.insert(expected.end(), single.begin(), single.end());
  EXPECT_EQ(printer->received(), expected);

  // The accessory path of the output path takes the chunked writer.
  rig.timeline->clear();
  session._printWithStream(nullptr, viewOf("CLS\r\n"));
  EXPECT_EQ(rig.timeline->script(), "write \"CLS\\r\\n\" | pause 0.1");
}

TEST(OutputPath, TcpWriterWaitsForTheOpenStatusAndGivesUpOnAClosedStream) {
  Rig rig;
  TestSession session(rig.platform());
  LogCapture log;
  auto stuck = std::make_shared<StuckOpening>();
  session.oStream = stuck;
  session.EthernetPortEnable = 1;
  rig.timeline->clear();
  int pauses = 0;
  rig.clock->onPause([&](double) {
    if (++pauses == 3) stuck->close();
  });
  session.ethernet_writeStream(viewOf("CLS\r\n"));
  EXPECT_EQ(log.count("block"), 3);
  EXPECT_EQ(rig.timeline->script(), "pause 0.1 | pause 0.1 | pause 0.1");
}
