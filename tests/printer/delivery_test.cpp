// orvante::Delivery against a simulated printer: each label confirmed, and
// a printer that goes away or reports a fault waited out, the label in
// flight sent again, none skipped.

#include <gtest/gtest.h>

#include <orvante/delivery.hpp>
#include <orvante/label.hpp>
#include <orvante/testing/simulated_printer.hpp>

#include <future>
#include <thread>

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;

namespace {

const DeliveryOptions kQuick{1s, 1s, 20ms, 100ms, Printer::Timeout::zero()};

Bytes labelNumbered(int n) {
  return Label().clear().text(10, 10, "3", "No. " + std::to_string(n)).print().bytes();
}

// How often the bytes stand in the stream.
std::size_t count(const Bytes& stream, const Bytes& part) {
  const std::string text = textOf(stream), piece = textOf(part);
  std::size_t found = 0;
  for (std::size_t at = 0; (at = text.find(piece, at)) != std::string::npos; at += piece.size())
    ++found;
  return found;
}

struct Reasons {
  void operator()(const Delivery::Wait& wait) {
    std::lock_guard lock(mutex);
    said.push_back(wait.reason);
  }
  std::vector<std::string> seen() {
    std::lock_guard lock(mutex);
    return said;
  }
  std::mutex mutex;
  std::vector<std::string> said;
};

}  // namespace

TEST(Delivery, EachLabelIsFollowedByTheStatusQueryThatConfirmsIt) {
  SimulatedPrinter printer("delivery-confirms");
  Delivery delivery(printer.uri(), kQuick);
  for (int n = 1; n <= 3; ++n) EXPECT_TRUE(delivery.print(labelNumbered(n)).ready());
  Bytes expected = bytesOf("\x1B!?");  // a new connection is asked first
  for (int n = 1; n <= 3; ++n) {
    const Bytes label = labelNumbered(n);
    expected.insert(expected.end(), label.begin(), label.end());
    expected.insert(expected.end(), {0x1B, '!', '?'});
  }
  EXPECT_EQ(printer.received(), expected);
  EXPECT_FALSE(delivery.waited());
}

TEST(Delivery, APrinterThatGoesAwayOrReportsAFaultIsWaitedOutAndNoLabelIsSkipped) {
  auto printer = std::make_unique<SimulatedPrinter>("delivery-away");
  Reasons reasons;
  Delivery delivery("sim://delivery-away", kQuick);
  delivery.onWaiting([&](const Delivery::Wait& wait) { reasons(wait); });
  delivery.print(labelNumbered(1));

  // Gone: the next label waits until a printer answers at that address.
  printer.reset();
  auto second = std::async(std::launch::async, [&] { return delivery.print(labelNumbered(2)); });
  ASSERT_EQ(second.wait_for(300ms), std::future_status::timeout);
  printer = std::make_unique<SimulatedPrinter>("delivery-away");
  ASSERT_EQ(second.wait_for(5s), std::future_status::ready);
  second.get();
  EXPECT_TRUE(delivery.waited());
  EXPECT_EQ(count(printer->received(), labelNumbered(2)), 1u);
  ASSERT_FALSE(reasons.seen().empty());
  const std::string first = reasons.seen().front();
  EXPECT_TRUE(first.starts_with("cannot reach the printer: ") ||
              first.starts_with("lost the printer: "))
      << first;
  EXPECT_EQ(reasons.seen().back(), "");

  // Back out of paper: nothing is sent until it clears, then the label goes once.
  printer.reset();
  printer = std::make_unique<SimulatedPrinter>("delivery-away");
  printer->setStatus(0x04);
  auto third = std::async(std::launch::async, [&] { return delivery.print(labelNumbered(3)); });
  ASSERT_EQ(third.wait_for(300ms), std::future_status::timeout);
  EXPECT_EQ(count(printer->received(), labelNumbered(3)), 0u);
  printer->setStatus(0x00);
  ASSERT_EQ(third.wait_for(5s), std::future_status::ready);
  EXPECT_EQ(count(printer->received(), labelNumbered(3)), 1u);
  const auto said = reasons.seen();
  EXPECT_NE(std::find(said.begin(), said.end(), "out of paper"), said.end());

  // A fault that comes with a label: that label goes again once it clears.
  const std::size_t before = printer->received().size();
  std::thread clear([&] {
    ASSERT_TRUE(printer->waitForBytes(before + 1));
    printer->setStatus(0x01);
    std::this_thread::sleep_for(200ms);
    printer->setStatus(0x00);
  });
  delivery.print(labelNumbered(4));
  clear.join();
  EXPECT_LE(count(printer->received(), labelNumbered(4)), 2u);
  EXPECT_GE(count(printer->received(), labelNumbered(4)), 1u);
}

TEST(Delivery, StopEndsAWaitFromAnotherThreadAndGivingUpSaysWhy) {
  Delivery waiting("sim://delivery-nobody", kQuick);
  auto label = std::async(std::launch::async, [&] { waiting.print(labelNumbered(1)); });
  std::this_thread::sleep_for(100ms);
  waiting.stop();
  ASSERT_EQ(label.wait_for(1s), std::future_status::ready);
  EXPECT_THROW(label.get(), Delivery::Stopped);

  DeliveryOptions brief = kQuick;
  brief.giveUpAfter = 200ms;
  Delivery givingUp("sim://delivery-nobody", brief);
  try {
    givingUp.print(labelNumbered(1));
    FAIL() << "no error";
  } catch (const Error& error) {
    EXPECT_NE(std::string(error.what()).find("no simulated printer is named"), std::string::npos)
        << error.what();
  }
}
