// orvante::Printer against a printer on the loopback interface: exact
// bytes, one round trip per query, and a clear error, within the time
// limit, for every way a printer can fail.

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <optional>
#include <thread>

#include <orvante/testing/simulated_printer.hpp>

#include "links.hpp"
#include "transport/event_loop.hpp"

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;

namespace {

std::string uriOf(const LoopbackPrinter& printer) {
  return "tcp://127.0.0.1:" + std::to_string(printer.port());
}

// The message of the Error the call throws, and how long it took.
template <class Call>
std::pair<std::string, std::chrono::milliseconds> failureOf(Call&& call) {
  const auto start = std::chrono::steady_clock::now();
  std::string message = "no error";
  try {
    call();
  } catch (const Error& error) {
    message = error.what();
  }
  return {message, std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::steady_clock::now() - start)};
}

orvante::testing::PrinterPeer::Responder answers() {
  return answering({{"~!T", "VP-203\r"},
                    {"~!I", "850\r"},
                    {"~!@", "12.5\r"},
                    {"~!A", "1048576\r"},
                    {"~!F", "LOGO.BMP\rFONT.TTF\r\x1A"},
                    {"\x1B!?", std::string(1, '\x04')},
                    {"DIAGNOSTIC REPORT SMBVOLTAGE\r\n", "{SMBVOLTAGE|8123}\r\n"}});
}

}  // namespace

TEST(Printer, ALabelArrivesByteExact) {
  LoopbackPrinter printer;
  auto connection = Printer::open(uriOf(printer));
  Label label;
  label.size(50, 30)
      .gap(2)
      .clear()
      .text(20, 20, "3", "Hello")
      .barcode(20, 60, "128", "A-1", 60)
      .print();
  std::vector<std::pair<std::size_t, std::size_t>> progress;
  connection.onProgress(
      [&](std::size_t sent, std::size_t total) { progress.emplace_back(sent, total); });
  connection.print(label);
  ASSERT_TRUE(printer.waitForBytes(label.bytes().size()));
  EXPECT_EQ(printer.received(), label.bytes());
  ASSERT_FALSE(progress.empty());
  EXPECT_EQ(progress.back(), std::make_pair(label.bytes().size(), label.bytes().size()));
}

TEST(Printer, EachQueryIsOneRoundTrip) {
  LoopbackPrinter printer(answers());
  auto connection = Printer::open(uriOf(printer));
  EXPECT_EQ(connection.name(), "VP-203");
  EXPECT_EQ(connection.codePage(), "850");
  EXPECT_DOUBLE_EQ(connection.mileage(), 12.5);
  EXPECT_EQ(connection.freeMemory(), 1048576u);
  EXPECT_EQ(connection.files(), (std::vector<std::string>{"LOGO.BMP", "FONT.TTF"}));
  const auto status = connection.status();
  EXPECT_TRUE(status.outOfPaper());
  EXPECT_EQ(status.describe(), "out of paper");
  EXPECT_EQ(connection.query("DIAGNOSTIC REPORT SMBVOLTAGE\r\n", "\r\n"), "{SMBVOLTAGE|8123}");
  EXPECT_EQ(PrinterStatus{0x11}.describe(), "head open, paused");
  EXPECT_EQ(PrinterStatus{0}.describe(), "ready");
}

TEST(Printer, RefusedAndMalformedAddressesSayWhy) {
  const int port = refusedPort();
  const auto [refused, took] =
      failureOf([&] { Printer::open("tcp://127.0.0.1:" + std::to_string(port), 2s); });
  EXPECT_EQ(refused,
            "cannot connect to 127.0.0.1:" + std::to_string(port) + ": Connection refused");
  EXPECT_LT(took, 2s);
  EXPECT_EQ(failureOf([] { Printer::open("printer.invalid"); }).first,
            "\"printer.invalid\" is no printer address: use tcp://host[:port]");
  EXPECT_EQ(failureOf([] { Printer::open("tcp://host:99999"); }).first,
            "the port \"99999\" is not a number from 1 to 65535");
  EXPECT_EQ(
      failureOf([] { Printer::open("ipp://host"); }).first,
      "printers at ipp:// addresses are not known: use tcp://, serial://, usb://, bt://, ble:// or "
      "sim://");
}

TEST(Printer, SilenceAndRepliesWithoutTheirEndFailAtTheTimeout) {
  LoopbackPrinter printer(answering({{"~!T", "NO-END"}}));
  auto connection = Printer::open(uriOf(printer));
  auto [unended, took] = failureOf([&] { connection.name(300ms); });
  EXPECT_EQ(unended, "127.0.0.1:" + std::to_string(printer.port()) +
                         " did not answer ~!T within 300 ms (the reply had no end)");
  EXPECT_GE(took, 300ms);
  EXPECT_LT(took, 2s);
  EXPECT_EQ(failureOf([&] { connection.status(200ms); }).first,
            "127.0.0.1:" + std::to_string(printer.port()) + " did not answer ESC!? within 200 ms");
  // The connection is still usable afterwards.
  printer.connection()->setResponder(answers());
  EXPECT_EQ(connection.codePage(), "850");
}

TEST(Printer, APrinterThatResetsMidSendIsAnErrorAndANewConnectionWorks) {
  LoopbackPrinter printer(answers());
  auto connection = Printer::open(uriOf(printer));
  printer.connection()->resetAfter(100000);
  const auto [message, took] = failureOf([&] { connection.send(Bytes(8 << 20, 'x')); });
  EXPECT_TRUE(message.starts_with("sending to 127.0.0.1:")) << message;
  EXPECT_FALSE(connection.isOpen());
  auto again = Printer::open(uriOf(printer));
  EXPECT_EQ(again.name(), "VP-203");
}

TEST(Printer, APrinterThatStopsReadingStallsTheSendIntoAnError) {
  LoopbackPrinter printer;
  auto connection = Printer::open(uriOf(printer));
  printer.connection()->pauseReading(true);
  connection.setStallTimeout(300ms);
  const auto [message, took] = failureOf([&] { connection.send(Bytes(32 << 20, 'x')); });
  EXPECT_TRUE(message.find("took no bytes for 300 ms") != std::string::npos) << message;
  EXPECT_LT(took, 5s);
}

TEST(Printer, SeveralThreadsShareOneConnection) {
  LoopbackPrinter printer(answers());
  auto connection = Printer::open(uriOf(printer));
  Label label;
  label.clear().text(10, 10, "2", "threaded").print();
  std::vector<std::future<void>> workers;
  for (int t = 0; t < 4; ++t) {
    workers.push_back(std::async(std::launch::async, [&] {
      for (int i = 0; i < 20; ++i) {
        connection.print(label);
        EXPECT_EQ(connection.name(), "VP-203");
      }
    }));
  }
  for (auto& worker : workers) worker.get();
  // Each label went out whole: the stream is 80 labels and 80 queries.
  const std::string received = textOf(printer.received());
  std::size_t labels = 0;
  for (std::size_t at = 0; (at = received.find(textOf(label.bytes()), at)) != std::string::npos;
       at += label.bytes().size()) {
    ++labels;
  }
  EXPECT_EQ(labels, 80u);
}

TEST(Printer, AnyThreadMayCloseMoveOrDestroyItWhileAnotherSendsOrAsks) {
  LoopbackPrinter printer;
  const std::string closed =
      "the connection to 127.0.0.1:" + std::to_string(printer.port()) + " was closed";
  // Each way of ending the connection, against a send stalled by a printer
  // that stopped reading and against a query it never answers.
  const std::vector<std::function<void(std::optional<Printer>&)>> ends = {
      [](std::optional<Printer>& held) { held->close(); },
      [](std::optional<Printer>& held) { held.reset(); },
      [](std::optional<Printer>& held) { Printer moved = std::move(*held); },
      [&](std::optional<Printer>& held) { *held = Printer::open(uriOf(printer)); },
  };
  std::size_t opened = 0;
  const Bytes large(64 << 20, 'x');
  for (std::size_t way = 0; way < ends.size(); ++way) {
    for (const bool asking : {false, true}) {
      std::optional<Printer> held = Printer::open(uriOf(printer));
      printer.connection(opened++)->pauseReading(true);
      Printer& connection = *held;
      std::atomic<bool> inside = false;
      connection.onProgress([&](std::size_t, std::size_t) { inside = true; });
      auto call = std::async(std::launch::async, [&] {
        return failureOf([&] {
          if (asking)
            connection.name(10s);
          else
            connection.send(large);
        });
      });
      ASSERT_TRUE(eventually([&] { return inside.load(); }));
      const auto start = std::chrono::steady_clock::now();
      ends[way](held);
      if (way == 3) ++opened;  // the connection that replaced it
      EXPECT_LT(std::chrono::steady_clock::now() - start, 100ms) << way;
      ASSERT_EQ(call.wait_for(1s), std::future_status::ready) << way << asking;
      EXPECT_EQ(call.get().first, closed) << way << asking;
    }
  }
}

// As a socket's peer does, the simulated printer takes what was sent before
// a close, even where the connection is gone before the bytes arrive.
TEST(Printer, BytesSentJustBeforeACloseReachTheSimulatedPrinter) {
  SimulatedPrinter simulated("sent-before-close");
  std::optional<Printer> printer = Printer::open(simulated.uri());
  std::promise<void> release;
  transport::EventLoop::instance().post([held = release.get_future().share()] { held.wait(); });
  printer->send(std::string_view("PRINT 1,1\r\n"));
  printer.reset();
  release.set_value();
  EXPECT_TRUE(simulated.waitForBytes(11));
  EXPECT_EQ(simulated.received(), bytesOf("PRINT 1,1\r\n"));
}
