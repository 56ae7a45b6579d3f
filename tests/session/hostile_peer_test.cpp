// The session under printers that refuse, hang up at once, never read or
// never answer: nothing piles up, no failure is lost, and the published
// waits without a time limit sleep instead of burning a core.

#include <gtest/gtest.h>

#include <dirent.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <fstream>
#include <future>
#include <thread>

#include "links.hpp"

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;

namespace {

std::size_t entriesIn(const char* folder) {
  std::size_t count = 0;
  if (DIR* dir = opendir(folder)) {
    while (readdir(dir)) ++count;
    closedir(dir);
  }
  return count;
}

std::size_t openDescriptors() { return entriesIn("/proc/self/fd"); }
std::size_t threads() { return entriesIn("/proc/self/task"); }

double processCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The process's CPU time over a stretch of waiting. A spinning waiter costs
// about one second a second; a sleeping one close to nothing.
double cpuWhileWaiting(std::chrono::milliseconds stretch) {
  std::this_thread::sleep_for(100ms);  // let the waiter reach its wait
  const double before = processCpuSeconds();
  std::this_thread::sleep_for(stretch);
  return processCpuSeconds() - before;
}

// A printer that takes one connection at a time and closes it: at once,
// or once it has read everything the other side sent (drain).
class HangingUpPrinter {
 public:
  explicit HangingUpPrinter(bool drain = false)
      : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(fd_, reinterpret_cast<sockaddr*>(&address), size);
    ::listen(fd_, 64);
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, drain] {
      for (;;) {
        const int client = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) return;
        char sink[4096];
        while (drain && ::read(client, sink, sizeof sink) > 0) {
        }
        ::close(client);
        ++served_;
      }
    });
  }
  ~HangingUpPrinter() {
    ::shutdown(fd_, SHUT_RDWR);
    thread_.join();
    ::close(fd_);
  }
  int port() const { return port_; }
  int served() const { return served_; }

 private:
  int fd_;
  int port_ = 0;
  std::atomic<int> served_{0};
  std::thread thread_;
};

long residentKilobytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  }
  return 0;
}

// Opens without the settling pause and waits for the error action.
bool openAndFail(TestSession& session, const std::string& host, int port) {
  if (session.openport_ethernet_delay(host, port, 0) != 1) return false;
  return eventually([&] { return session.EthernetPortEnable == 0; }, 5s);
}

// Streams that fail the moment they open: the error event is handled, on
// another thread, before open() returns and so before the open operation
// has raised its flag.
class FailingAtOnce final : public StreamFactory {
  template <class Base>
  class Failing final : public Base {
   public:
    void open() override {
      status_ = StreamStatus::Error;
      std::thread([this] {
        if (StreamDelegate* delegate = delegate_) delegate->stream(this, stream_event::ErrorOccurred);
      }).join();
    }
    void close() override { status_ = StreamStatus::Closed; }
    StreamStatus streamStatus() const override { return status_; }
    std::string streamError() const override { return "refused"; }
    void setDelegate(StreamDelegate* delegate) override { delegate_ = delegate; }
    void scheduleInRunLoop() override {}
    void removeFromRunLoop() override {}
    bool hasBytesAvailable() { return false; }
    std::int64_t read(std::uint8_t*, std::size_t) { return -1; }
    bool hasSpaceAvailable() { return false; }
    std::int64_t write(const std::uint8_t*, std::size_t) { return -1; }

   private:
    std::atomic<StreamStatus> status_{StreamStatus::NotOpen};
    std::atomic<StreamDelegate*> delegate_{nullptr};
  };

 public:
  StreamPair createPairWithSocketToHost(const std::string&, std::int32_t) override {
    return {std::make_shared<Failing<InputStream>>(), std::make_shared<Failing<OutputStream>>()};
  }
};

}  // namespace

TEST(HostilePeer, AnErrorBeforeTheFlagIsUpStillClearsIt) {
  Rig rig;
  auto platform = rig.platform();
  platform.streams = std::make_shared<FailingAtOnce>();
  TestSession session(platform);
  EXPECT_EQ(session.openport_ethernet_delay("printer", 9100, 0), 1);
  EXPECT_EQ(session.EthernetPortEnable, 0);
  EXPECT_EQ(session.error, 1);
  EXPECT_EQ(session.stream_status(), -1);
}

TEST(HostilePeer, FailedOpensLeaveNoDescriptorOrThreadBehind) {
  Rig rig;
  TestSession session(rig.platform());
  HangingUpPrinter hangingUp;
  ASSERT_TRUE(openAndFail(session, "127.0.0.1", refusedPort()));
  session.closeport_withtime(0);
  const auto descriptors = openDescriptors();
  const auto threadCount = threads();
  for (int cycle = 0; cycle < 200; ++cycle) {
    const int port = cycle % 2 ? refusedPort() : hangingUp.port();
    ASSERT_TRUE(openAndFail(session, "127.0.0.1", port)) << "cycle " << cycle;
    EXPECT_EQ(session.closeport_withtime(0), -1);
  }
  EXPECT_TRUE(eventually([&] { return threads() <= threadCount; })) << threads();
  EXPECT_LE(openDescriptors(), descriptors + 2);
  EXPECT_EQ(session.iStream.load(), nullptr);
  EXPECT_EQ(session.readStreamHandle().load(), nullptr);
}

TEST(HostilePeer, OpensWithFewDescriptorsLeftFailInsteadOfHanging) {
  Rig rig;
  TestSession session(rig.platform());
  const int port = refusedPort();
  struct LowLimit {
    LowLimit() {
      ::getrlimit(RLIMIT_NOFILE, &saved);
      rlimit low = saved;
      low.rlim_cur = openDescriptors() + 8;
      ::setrlimit(RLIMIT_NOFILE, &low);
    }
    ~LowLimit() {
      for (int fd : hoard) ::close(fd);
      ::setrlimit(RLIMIT_NOFILE, &saved);
    }
    rlimit saved{};
    std::vector<int> hoard;
  } limit;
  // Failed links are released, so the cycles go on past the limit...
  for (int cycle = 0; cycle < 100; ++cycle) {
    ASSERT_TRUE(openAndFail(session, "127.0.0.1", port)) << "cycle " << cycle;
  }
  // ...and with every descriptor taken, an open is refused outright.
  for (int fd; (fd = ::dup(0)) >= 0;) limit.hoard.push_back(fd);
  EXPECT_EQ(session.openport_ethernet_delay("127.0.0.1", port, 0), -1);
}

TEST(HostilePeer, AnErrorDuringTheOpenIsNeverLost) {
  Rig rig;
  TestSession session(rig.platform());
  HangingUpPrinter printer;
  for (int cycle = 0; cycle < 1500; ++cycle) {
    ASSERT_TRUE(openAndFail(session, "127.0.0.1", printer.port()))
        << "cycle " << cycle << ": status " << session.stream_status();
    EXPECT_EQ(session.stream_status(), -1);
  }
}

TEST(HostilePeer, AWriterSleepsWhileThePrinterDoesNotRead) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  auto peer = printer.connection();
  peer->pauseReading(true);
  const std::string command(10 << 20, 'A');
  auto sending = std::async(std::launch::async, [&] { return session.sendcommand(command); });
#if !defined(__SANITIZE_THREAD__)
  // Under ThreadSanitizer the instrumented copies of the 10 MiB command
  // alone cost more than this.
  EXPECT_LT(cpuWhileWaiting(1500ms), 0.3);
#else
  std::this_thread::sleep_for(1500ms);
#endif
  EXPECT_EQ(sending.wait_for(0s), std::future_status::timeout);
  peer->pauseReading(false);
  EXPECT_EQ(sending.get(), 1);
  EXPECT_TRUE(peer->waitForBytes(command.size()));
}

TEST(HostilePeer, AQuerySleepsWhileThePrinterIsSilent) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  auto asking = std::async(std::launch::async, [&] { return session.printer_name(); });
  EXPECT_LT(cpuWhileWaiting(1500ms), 0.3);
  EXPECT_EQ(asking.wait_for(0s), std::future_status::timeout);
  // A reset ends the wait through the error action.
  printer.connection()->reset();
  EXPECT_EQ(asking.get(), Bytes{0xFF});
}

TEST(HostilePeer, OpeningBleSleepsWhileThePeripheralDoesNotAnswer) {
  Rig rig;
  TestSession session(rig.platform());
  auto silent = orvante::testing::FakePeripheral::printer("Silent");
  silent->setConnectable(false);
  rig.radio->addPeripheral(silent);
  auto opening = std::async(std::launch::async, [&] { return session.openport_ble(silent); });
  EXPECT_LT(cpuWhileWaiting(1500ms), 0.3);
  EXPECT_EQ(opening.wait_for(0s), std::future_status::timeout);
  session.BLEPortEnable = -1;  // any value but 0 ends the published wait
  EXPECT_EQ(opening.get(), -1);
}

TEST(HostilePeer, TheReplyBelongsToTheApplicationThatReadsIt) {
  TcpRig tcp(0.25, answering({{"~!T", "VIRTUAL-1\r"}}));
  auto& [rig, session, printer] = tcp;
  for (int trial = 0; trial < 12; ++trial) {
    ASSERT_EQ(session.sendcommandWithData(viewOf("~!T")), 1);
    EXPECT_EQ(textOf(session.readStream()), "VIRTUAL-1\r") << "trial " << trial;
  }
}

TEST(HostilePeer, OpenPrintCloseCyclesLeaveNothingBehind) {
  // The system's own streams (the recording ones keep every write), and
  // pauses a twentieth of their length: the writer's published wait for the
  // stream to open would otherwise record pauses by the thousand.
  Rig rig(0.05);
  TestSession session(Platform{rig.clock, nullptr, nullptr, nullptr});
  HangingUpPrinter printer(true);
  auto cycle = [&] {
    ASSERT_EQ(session.openport_ethernet_delay("127.0.0.1", printer.port(), 0), 1);
    session.printerfont(10, 10, "3", 0, 1, 1, "cycle");
    session.printlabel(1, 1);
    EXPECT_EQ(session.closeport_withtime(0), 1);
  };
  for (int warmUp = 0; warmUp < 10; ++warmUp) cycle();
  ASSERT_TRUE(eventually([&] { return printer.served() == 10; }));
  const auto descriptors = openDescriptors();
  const auto threadCount = threads();
  const auto resident = residentKilobytes();
  for (int round = 0; round < 200; ++round) cycle();
  ASSERT_TRUE(eventually([&] { return printer.served() == 210; }));
  EXPECT_TRUE(eventually([&] { return threads() <= threadCount; })) << threads();
  EXPECT_LE(openDescriptors(), descriptors + 2);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  // The sanitizers' own bookkeeping grows with every allocation.
  EXPECT_LT(residentKilobytes() - resident, 4 * 1024);
#else
  (void)resident;
#endif
}
