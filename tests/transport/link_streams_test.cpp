// The platform stream pair over a link: statuses, events and the ends of a link.

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <thread>

#include "test_session.hpp"
#include <orvante/testing/loopback_printer.hpp>

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;

namespace {

class EventLog final : public StreamDelegate {
 public:
  void stream(Stream* stream, std::uint64_t eventCode) override {
    std::lock_guard lock(mutex_);
    events_.emplace_back(stream, eventCode);
  }
  std::vector<std::uint64_t> of(Stream* stream) const {
    std::lock_guard lock(mutex_);
    std::vector<std::uint64_t> codes;
    for (const auto& [source, code] : events_) {
      if (source == stream) codes.push_back(code);
    }
    return codes;
  }
  bool saw(Stream* stream, std::uint64_t code) const {
    auto codes = of(stream);
    return std::find(codes.begin(), codes.end(), code) != codes.end();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<Stream*, std::uint64_t>> events_;
};

void listen(const StreamPair& pair, EventLog& log) {
  for (const std::shared_ptr<Stream>& stream :
       {std::shared_ptr<Stream>(pair.input), std::shared_ptr<Stream>(pair.output)}) {
    stream->setDelegate(&log);
    stream->scheduleInRunLoop();
    stream->open();
  }
}

}  // namespace

TEST(LinkStreams, ALinkOpensCarriesBytesBothWaysAndEnds) {
  LoopbackPrinter printer;
  EventLog events;  // outlives the streams, which may still report
  auto pair = transport::connectSocketStreams("localhost", printer.port());
  EXPECT_EQ(pair.input->streamStatus(), StreamStatus::NotOpen);
  listen(pair, events);
  ASSERT_TRUE(eventually([&] { return pair.output->streamStatus() == StreamStatus::Open; }));
  ASSERT_TRUE(eventually([&] { return events.saw(pair.output.get(), 4); }));
  EXPECT_EQ(events.of(pair.input.get()).front(), stream_event::OpenCompleted);
  EXPECT_EQ(events.of(pair.output.get()).front(), stream_event::OpenCompleted);

  EXPECT_EQ(pair.output->write(viewOf("ping").data(), 4), 4);
  ASSERT_TRUE(printer.waitForBytes(4));
  printer.connection()->send(viewOf("pong"));
  ASSERT_TRUE(eventually([&] { return events.saw(pair.input.get(), 2); }));
  std::uint8_t reply[16];
  EXPECT_EQ(pair.input->read(reply, sizeof reply), 4);
  EXPECT_EQ(textOf(ByteView(reply, 4)), "pong");
  EXPECT_FALSE(pair.input->hasBytesAvailable());

  printer.connection()->close();
  ASSERT_TRUE(eventually([&] { return events.saw(pair.output.get(), 8); }));
  EXPECT_TRUE(events.saw(pair.input.get(), stream_event::EndEncountered));
  EXPECT_EQ(pair.input->streamStatus(), StreamStatus::AtEnd);
  EXPECT_EQ(pair.output->streamStatus(), StreamStatus::Error);
  EXPECT_FALSE(pair.output->streamError().empty());
  EXPECT_LT(pair.output->write(viewOf("x").data(), 1), 0);
}

TEST(LinkStreams, ARefusedConnectionEndsInTheErrorStatus) {
  EventLog events;
  auto pair = transport::connectSocketStreams("127.0.0.1", refusedPort());
  listen(pair, events);
  ASSERT_TRUE(eventually([&] { return events.saw(pair.input.get(), 8); }));
  EXPECT_EQ(pair.input->streamStatus(), StreamStatus::Error);
  EXPECT_EQ(pair.output->streamStatus(), StreamStatus::Error);
  EXPECT_NE(pair.input->streamError().find("refused"), std::string::npos);
  EXPECT_FALSE(pair.output->hasSpaceAvailable());
}

TEST(LinkStreams, OneWriteTakesOnlyWhatTheLinkAccepts) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  orvante::testing::PrinterPeer peer(ends[1]);
  peer.pauseReading(true);
  auto pair = transport::adoptSocketStreams(ends[0]);
  pair.output->open();
  ASSERT_TRUE(eventually([&] { return pair.output->streamStatus() == StreamStatus::Open; }));
  const Bytes big(16 << 20, 0x55);
  const auto written = pair.output->write(big.data(), big.size());
  EXPECT_GT(written, 0);
  EXPECT_LT(written, static_cast<std::int64_t>(big.size()));
  peer.pauseReading(false);
  EXPECT_TRUE(peer.waitForBytes(static_cast<std::size_t>(written)));
}

TEST(LinkStreams, AStreamOpenedAfterThePrinterHungUpFailsToo) {
  LoopbackPrinter printer;
  EventLog events;
  auto pair = transport::connectSocketStreams("127.0.0.1", printer.port());
  for (const std::shared_ptr<Stream>& stream :
       {std::shared_ptr<Stream>(pair.input), std::shared_ptr<Stream>(pair.output)}) {
    stream->setDelegate(&events);
    stream->scheduleInRunLoop();
  }
  pair.input->open();
  printer.connection()->close();
  ASSERT_TRUE(eventually([&] { return pair.input->streamStatus() == StreamStatus::AtEnd; }));
  pair.output->open();
  EXPECT_EQ(pair.output->streamStatus(), StreamStatus::Error);
  EXPECT_TRUE(eventually([&] { return events.saw(pair.output.get(), stream_event::ErrorOccurred); }));
}

namespace {

std::size_t threads() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    ++count;
  }
  return count;
}

}  // namespace

TEST(LinkStreams, EveryOpenLinkSharesOneEventThreadThatGoesWithTheLastLink) {
  {
    // A first link and its end, so threads a runtime starts on the first
    // thread of the process (a sanitizer's) are there before counting.
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    auto first = transport::adoptSocketStreams(ends[0]);
    first.output->open();
    ASSERT_TRUE(eventually([&] { return first.output->streamStatus() == StreamStatus::Open; }));
    first.output->close();
    ::close(ends[1]);
    std::this_thread::sleep_for(300ms);
  }
  const auto before = threads();
  std::vector<StreamPair> pairs;
  std::vector<int> printerEnds;
  EventLog events;
  for (int i = 0; i < 10; ++i) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    pairs.push_back(transport::adoptSocketStreams(ends[0]));
    printerEnds.push_back(ends[1]);
    listen(pairs.back(), events);
  }
  for (auto& pair : pairs) {
    ASSERT_TRUE(eventually([&] { return events.saw(pair.output.get(), stream_event::OpenCompleted); }));
  }
  EXPECT_EQ(threads(), before + 1);
  // Every link still hears its own printer.
  for (int end : printerEnds) ASSERT_EQ(::write(end, "!", 1), 1);
  for (auto& pair : pairs) {
    EXPECT_TRUE(eventually([&] { return events.saw(pair.input.get(), stream_event::HasBytesAvailable); }));
  }
  for (auto& pair : pairs) {
    pair.input->close();
    pair.output->close();
  }
  EXPECT_TRUE(eventually([&] { return threads() == before; })) << threads() - before;
  for (int end : printerEnds) ::close(end);
}

TEST(LinkStreams, ADeviceIsReadAndWrittenLikeASocket) {
  int controller = -1;
  int device = -1;
  ASSERT_EQ(::openpty(&controller, &device, nullptr, nullptr, nullptr), 0);
  termios raw{};
  ::tcgetattr(device, &raw);
  ::cfmakeraw(&raw);
  ::tcsetattr(device, TCSANOW, &raw);
  EventLog events;
  auto pair = transport::adoptDeviceStreams(device);
  listen(pair, events);
  ASSERT_TRUE(eventually([&] { return pair.output->streamStatus() == StreamStatus::Open; }));
  EXPECT_EQ(pair.output->write(viewOf("PRINT 1\r\n").data(), 9), 9);
  char sent[16] = {};
  ASSERT_EQ(::read(controller, sent, sizeof sent), 9);
  EXPECT_EQ(std::string(sent, 9), "PRINT 1\r\n");

  ASSERT_EQ(::write(controller, "OK\r", 3), 3);
  ASSERT_TRUE(eventually([&] { return events.saw(pair.input.get(), stream_event::HasBytesAvailable); }));
  std::uint8_t reply[8];
  EXPECT_EQ(pair.input->read(reply, sizeof reply), 3);
  EXPECT_EQ(textOf(ByteView(reply, 3)), "OK\r");

  // A device unplugged under the link fails it.
  ::close(controller);
  EXPECT_TRUE(eventually([&] { return isFinished(pair.output->streamStatus()); }));
}
