// What a program with many sessions costs in threads: each session holds an
// open TCP link and its BLE central, with a system bus present and without
// one; one event loop serves every link and the bus, whatever the number.

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

#include <orvante/session.hpp>

#include "bluez_rig.hpp"

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;

namespace {

// ThreadSanitizer runs a background thread of its own in the process.
#if defined(__SANITIZE_THREAD__)
constexpr std::size_t kToolThreads = 1;
#else
constexpr std::size_t kToolThreads = 0;
#endif

std::size_t threads() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry :
       std::filesystem::directory_iterator("/proc/self/task")) {
    ++count;
  }
  return count - kToolThreads;
}

// A printer that only listens: the kernel takes the connections in its
// backlog, so the printer's side costs this process no thread.
struct ListeningPort {
  ListeningPort() {
    fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(fd, 256);
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
  }
  ~ListeningPort() { ::close(fd); }
  int fd = -1;
  int port = 0;
};

class NoPauses final : public Clock {
 public:
  void sleepFor(double) override {}
};

// The most threads the process had beside `baseline` while `count`
// sessions held their links.
std::size_t threadsWithSessions(int count) {
  ListeningPort printer;
  Platform platform = Platform::system();
  platform.clock = std::make_shared<NoPauses>();
  std::vector<std::unique_ptr<ORVANTESDK>> sessions;
  for (int i = 0; i < count; ++i) {
    sessions.push_back(std::make_unique<ORVANTESDK>(platform));
    sessions.back()->openport_ethernet("127.0.0.1", printer.port);
  }
  for (auto& session : sessions) {
    EXPECT_TRUE(eventually([&] { return session->stream_status() == 2; }));
  }
  // Workers that delivered a callback or opened a link end when idle.
  std::size_t most = 0;
  EXPECT_TRUE(eventually([&] {
    most = threads();
    return most <= 2;
  })) << most
      << " threads with " << count << " sessions";
  return most;
}

}  // namespace

TEST(Threads, ManySessionsWithOpenLinksRunOnTwoThreadsWithOrWithoutASystemBus) {
  orvante::setLogSink([](std::string_view) {});
  for (const bool bus : {false, true}) {
    std::optional<PrivateBus> privateBus;
    if (bus) privateBus.emplace();
    SystemBusAt system(bus ? privateBus->address() : "unix:path=/nonexistent/orvante-bus");
    for (const int count : {1, 10, 50}) {
      SCOPED_TRACE(std::to_string(count) + (bus ? " sessions, a bus" : " sessions, no bus"));
      // The test's own thread and the event loop's.
      EXPECT_LE(threadsWithSessions(count), 2u);
    }
  }
}
