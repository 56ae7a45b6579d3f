// Clients that misbehave on purpose never cost the others their service:
// one that floods queries and never reads its replies is dropped while
// others get their answers, SIGTERM ends the printer whatever clients do,
// stalled payloads hold bounded memory and are closed when silent, and a
// burst of connects waits for no retry.

#include <fcntl.h>

#include <atomic>
#include <fstream>
#include <thread>
#include <vector>

#include "loopback_client.hpp"
#include "printer_process.hpp"

namespace {

using namespace std::chrono_literals;
using orvante::testing::eventuallyTrue;
using orvante::testing::PrinterProcess;
using orvante::vprinter::testing::connectTo;
using orvante::vprinter::testing::sendAll;
using orvante::vprinter::testing::statusRoundTrip;

// Sanitizers slow every command several times over and keep freed
// memory in quarantine.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// A client that sends name queries as fast as the printer takes them and
// never reads a reply, until the printer drops it or `limit` has passed.
// Its small receive buffer leaves the replies with the printer soon.
class Flooder {
 public:
  Flooder(int port, std::chrono::seconds limit)
      : socket_(connectTo(port, 4096)), thread_([this, limit] { flood(limit); }) {}
  ~Flooder() {
    stop_ = true;
    thread_.join();
    close(socket_);
  }
  bool dropped() const { return dropped_; }

 private:
  void flood(std::chrono::seconds limit) {
    fcntl(socket_, F_SETFL, O_NONBLOCK);
    std::string queries;
    for (int i = 0; i < 20000; ++i) queries += "~!T";
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!stop_ && std::chrono::steady_clock::now() < deadline) {
      pollfd writable{socket_, POLLOUT, 0};
      if (poll(&writable, 1, 50) != 1) continue;
      if (send(socket_, queries.data(), queries.size(), MSG_NOSIGNAL) >= 0 || errno == EAGAIN) {
        continue;
      }
      dropped_ = true;
      return;
    }
    // The flood is over: a printer stuck on this client may go on.
    shutdown(socket_, SHUT_RDWR);
  }

  int socket_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> dropped_{false};
  std::thread thread_;
};

// A field of /proc/PID/status or /proc/PID/io, as a number.
std::size_t procField(pid_t pid, const char* file, const std::string& name) {
  std::ifstream lines("/proc/" + std::to_string(pid) + "/" + file);
  std::string key;
  std::size_t value = 0;
  while (lines >> key >> value) {
    if (key == name + ":") return value;
    lines.ignore(1 << 10, '\n');
  }
  return 0;
}

TEST(HostileClients, AClientThatNeverReadsIsDroppedWhileOthersAreAnswered) {
  PrinterProcess printer({"--max-unread", "100000"});
  // The sockets' own buffers take a few MB of replies before the printer's
  // does: under a sanitizer that is several seconds of queries.
  Flooder flooder(printer.port(), 60s);
  const int other = connectTo(printer.port());
  int answeredAfterDrop = 0;
  for (int asked = 0; answeredAfterDrop < 5 && asked < 3000; ++asked) {
    ASSERT_TRUE(statusRoundTrip(other, kSanitized ? 3s : 1s))
        << "no answer after " << asked << " answers";
    if (flooder.dropped()) ++answeredAfterDrop;
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_TRUE(flooder.dropped());
  EXPECT_TRUE(eventuallyTrue([&] {
    return printer.journal().find(
               "\"outcome\":\"warning\",\"reason\":\"closed by the printer: more than 100000 "
               "bytes of replies unread\"") != std::string::npos;
  }));
  close(other);
}

TEST(HostileClients, SigtermEndsThePrinterAtOnceWhileAClientFloods) {
  PrinterProcess printer({"--max-unread", std::to_string(1 << 30)});
  Flooder flooder(printer.port(), 10s);
  std::this_thread::sleep_for(1s);
  EXPECT_FALSE(flooder.dropped());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(printer.stop(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, kSanitized ? 3s : 1s);
}

TEST(HostileClients, PayloadsLeftUnfinishedHoldBoundedMemory) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer keeps freed memory in quarantine";
  PrinterProcess printer;
  // 100 clients each claim 6 MB, send half and go silent.
  const std::string payload = "DOWNLOAD \"F\",6000000," + std::string(3'000'000, 'x');
  std::vector<int> clients;
  for (int i = 0; i < 100; ++i) {
    clients.push_back(connectTo(printer.port()));
    ASSERT_TRUE(sendAll(clients.back(), payload));
  }
  ASSERT_TRUE(eventuallyTrue(
      [&] { return procField(printer.pid(), "io", "rchar") >= clients.size() * payload.size(); }));
  // 64 MiB of unfinished payloads, the printer itself and its fonts.
  EXPECT_LT(procField(printer.pid(), "status", "VmHWM"), 160u * 1024) << "kB";
  const int other = connectTo(printer.port());
  EXPECT_TRUE(statusRoundTrip(other, 1s));
  close(other);
  for (int client : clients) close(client);
  EXPECT_TRUE(eventuallyTrue([&] {
    return printer.journal().find(
               "unfinished payloads would hold more than 67108864 bytes: "
               "dropped; the connection closed after 3000000 of 6000000 bytes") !=
           std::string::npos;
  }));
}

TEST(HostileClients, AConnectionSilentInsideAPayloadIsClosed) {
  PrinterProcess printer({"--idle-timeout", "0.5"});
  const int stalled = connectTo(printer.port());
  ASSERT_TRUE(sendAll(stalled, std::string("BITMAP 0,0,4,4,0,") + std::string(5, '\0')));
  // Silent inside a line is no payload: it stays open.
  const int pausing = connectTo(printer.port());
  ASSERT_TRUE(sendAll(pausing, "CLS"));
  pollfd closed{stalled, POLLIN, 0};
  ASSERT_EQ(poll(&closed, 1, 5000), 1);
  char byte = 0;
  EXPECT_EQ(recv(stalled, &byte, 1, 0), 0);
  EXPECT_TRUE(eventuallyTrue([&] {
    const std::string journal = printer.journal();
    return journal.find("closed by the printer: silent for 0.5 s inside a payload") !=
               std::string::npos &&
           journal.find("\"command\":\"BITMAP\",\"arguments\":[],\"payload\":{\"length\":5,") !=
               std::string::npos &&
           journal.find("the connection closed after 5 of 16 bytes") != std::string::npos;
  })) << printer.journal();
  ASSERT_TRUE(sendAll(pausing, "\r\n"));
  EXPECT_TRUE(statusRoundTrip(pausing, 1s));
  close(stalled);
  close(pausing);
}

TEST(HostileClients, TwoHundredConnectsAtOnceAreAnsweredWithoutARetry) {
  PrinterProcess printer;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(printer.port()));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const auto start = std::chrono::steady_clock::now();
  std::vector<pollfd> clients;
  for (int i = 0; i < 200; ++i) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address);
    clients.push_back({socket, POLLOUT, 0});
  }
  // Each asks ESC !? once it is connected.
  std::size_t answered = 0;
  while (answered < clients.size() && std::chrono::steady_clock::now() - start < 5s) {
    poll(clients.data(), clients.size(), 100);
    for (pollfd& client : clients) {
      if (!client.revents) continue;
      if (client.events == POLLOUT) {
        EXPECT_EQ(send(client.fd, "\x1b!?", 3, MSG_NOSIGNAL), 3);
        client.events = POLLIN;
        continue;
      }
      char status = 1;
      EXPECT_EQ(recv(client.fd, &status, 1, 0), 1);
      ++answered;
      close(client.fd);
      client.fd = -1;
    }
  }
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(answered, clients.size());
  // A connect that found the listening queue full is retried a second later.
  EXPECT_LT(took, 900ms);
  for (const pollfd& client : clients) {
    if (client.fd >= 0) close(client.fd);
  }
}

}  // namespace
