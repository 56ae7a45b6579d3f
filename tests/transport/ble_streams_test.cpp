// The BLE stream pair over the in-memory radio: it finds the printer by
// address, writes one acknowledged piece of the link's size at a time,
// reads notifications, and turns the radio's failures into the error state.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

#include "test_session.hpp"
#include "transport/ble_printer_profile.hpp"
#include "transport/ble_streams.hpp"

using namespace orvante;
using namespace orvante::testing;
namespace profile = orvante::transport::printer_profile;

namespace {

class Events final : public StreamDelegate {
 public:
  void stream(Stream* stream, std::uint64_t event) override {
    std::lock_guard lock(mutex_);
    seen_.push_back({stream, event});
  }
  bool saw(Stream* stream, std::uint64_t event) const {
    std::lock_guard lock(mutex_);
    return std::count(seen_.begin(), seen_.end(), std::pair{stream, event}) > 0;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<Stream*, std::uint64_t>> seen_;
};

struct Link {
  explicit Link(FakeBleRadio& radio, const std::string& address)
      : pair(transport::makeBleStreams(std::shared_ptr<FakeBleRadio>(&radio, [](auto*) {}),
                                       address)) {
    for (const std::shared_ptr<Stream>& stream :
         {std::shared_ptr<Stream>(pair.input), std::shared_ptr<Stream>(pair.output)}) {
      stream->setDelegate(&events);
      stream->scheduleInRunLoop();
      stream->open();
    }
  }
  ~Link() {
    pair.input->setDelegate(nullptr);
    pair.output->setDelegate(nullptr);
  }
  bool settled() {
    return eventually([&] { return pair.output->streamStatus() != StreamStatus::Opening; });
  }

  Events events;
  StreamPair pair;
};

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

}  // namespace

TEST(BleStreams, WritesGoOneAcknowledgedPieceAtATimeAndNotificationsAreRead) {
  FakeBleRadio radio;
  radio.addPeripheral(FakePeripheral::printer("Other printer"));
  auto printer = FakePeripheral::printer("BLE printer");
  printer->setMtu(50);
  radio.addPeripheral(printer);
  Link link(radio, lower(*printer->identifier()));
  ASSERT_TRUE(link.settled());
  ASSERT_EQ(link.pair.output->streamStatus(), StreamStatus::Open);
  EXPECT_EQ(link.pair.input->streamStatus(), StreamStatus::Open);
  EXPECT_TRUE(link.events.saw(link.pair.input.get(), stream_event::OpenCompleted));
  EXPECT_TRUE(printer->notifying(profile::kReceive));

  const Bytes message(100, 0x41);
  std::size_t sent = 0;
  while (sent < message.size()) {
    ASSERT_TRUE(eventually([&] { return link.pair.output->hasSpaceAvailable(); }));
    sent += static_cast<std::size_t>(
        link.pair.output->write(message.data() + sent, message.size() - sent));
  }
  std::vector<std::size_t> sizes;
  for (const auto& write : printer->writes()) {
    EXPECT_EQ(write.type, ble::WriteType::WithResponse);
    EXPECT_EQ(write.characteristic, profile::kWrite);
    sizes.push_back(write.data.size());
  }
  EXPECT_EQ(sizes, (std::vector<std::size_t>{47, 47, 6}));

  printer->notify(profile::kReceive, bytesOf("ORVANTE VP-1\r"));
  ASSERT_TRUE(eventually([&] { return link.pair.input->hasBytesAvailable(); }));
  EXPECT_TRUE(link.events.saw(link.pair.input.get(), stream_event::HasBytesAvailable));
  std::uint8_t reply[64];
  const auto count = link.pair.input->read(reply, sizeof reply);
  EXPECT_EQ(std::string(reply, reply + std::max<std::int64_t>(count, 0)), "ORVANTE VP-1\r");

  // A refused write puts both streams in the error state, with the reason.
  ASSERT_TRUE(eventually([&] { return link.pair.output->hasSpaceAvailable(); }));
  printer->setWriteError(ble::Error{3, "Write not permitted"});
  EXPECT_EQ(link.pair.output->write(message.data(), 10), 10);
  ASSERT_TRUE(eventually([&] { return link.pair.output->streamStatus() == StreamStatus::Error; }));
  EXPECT_EQ(link.pair.output->streamError(), "the printer refused a write: Write not permitted");
  EXPECT_EQ(link.pair.input->streamStatus(), StreamStatus::Error);
  EXPECT_TRUE(link.events.saw(link.pair.output.get(), stream_event::ErrorOccurred));
  EXPECT_LT(link.pair.output->write(message.data(), 10), 0);
}

TEST(BleStreams, TheRadioAndThePrinterEndTheLinkWithAReason) {
  {
    FakeBleRadio radio;
    radio.setInitialState(ble::CentralState::PoweredOff);
    Link link(radio, "00:11:22:33:44:55");
    ASSERT_TRUE(link.settled());
    EXPECT_EQ(link.pair.output->streamError(), "Bluetooth is off");
  }
  {
    FakeBleRadio radio;
    auto printer = FakePeripheral::printer("BLE printer");
    radio.addPeripheral(printer);
    Link link(radio, *printer->identifier());
    ASSERT_TRUE(link.settled());
    printer->dropConnection();
    ASSERT_TRUE(eventually([&] { return link.pair.input->streamStatus() == StreamStatus::Error; }));
    EXPECT_EQ(link.pair.input->streamError().rfind("the printer disconnected", 0), 0u)
        << link.pair.input->streamError();
  }
  {
    // A peripheral without the serial service is no printer.
    FakeBleRadio radio;
    auto other = std::make_shared<FakePeripheral>("6F1C2A9E-0000-0000-0000-000000000042",
                                                  "Heart rate");
    other->addService("180D", {{"2A37", std::nullopt}});
    radio.addPeripheral(other);
    Link link(radio, *other->identifier());
    ASSERT_TRUE(link.settled());
    EXPECT_EQ(link.pair.output->streamError().rfind("it offers no printer serial service", 0), 0u)
        << link.pair.output->streamError();
  }
}
