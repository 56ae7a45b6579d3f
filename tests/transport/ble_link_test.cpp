// The BLE link over the in-memory radio: it finds the printer by address,
// writes one acknowledged piece of the link's size at a time, reads
// notifications, and turns the radio's failures into a failed link with the
// reason.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

#include "test_session.hpp"
#include "transport/ble_link.hpp"
#include "transport/ble_printer_profile.hpp"

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;
namespace profile = orvante::transport::printer_profile;
using transport::Wait;

namespace {

std::shared_ptr<transport::Link> linkOver(FakeBleRadio& radio, const std::string& address) {
  return transport::bleLink(std::shared_ptr<FakeBleRadio>(&radio, [](auto*) {}), address);
}

transport::Deadline soon() {
  return std::chrono::steady_clock::now() + 5s;
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

}  // namespace

TEST(BleLink, WritesGoOneAcknowledgedPieceAtATimeAndNotificationsAreRead) {
  FakeBleRadio radio;
  radio.addPeripheral(FakePeripheral::printer("Other printer"));
  auto printer = FakePeripheral::printer("BLE printer");
  printer->setMtu(50);
  radio.addPeripheral(printer);
  auto link = linkOver(radio, lower(*printer->identifier()));
  ASSERT_EQ(link->open(soon()), Wait::Done);
  EXPECT_TRUE(printer->notifying(profile::kReceive));

  std::size_t sent = 0;
  EXPECT_EQ(link->writeAll(Bytes(100, 0x41), 5s, nullptr, sent), Wait::Done);
  EXPECT_EQ(sent, 100u);
  std::vector<std::size_t> sizes;
  for (const auto& write : printer->writes()) {
    EXPECT_EQ(write.type, ble::WriteType::WithResponse);
    EXPECT_EQ(write.characteristic, profile::kWrite);
    sizes.push_back(write.data.size());
  }
  EXPECT_EQ(sizes, (std::vector<std::size_t>{47, 47, 6}));

  printer->notify(profile::kReceive, bytesOf("ORVANTE VP-1\r"));
  std::uint8_t reply[64];
  std::size_t got = 0;
  ASSERT_EQ(link->read(reply, soon(), got), Wait::Done);
  EXPECT_EQ(std::string(reply, reply + got), "ORVANTE VP-1\r");

  // A refused write fails the link, with the reason.
  printer->setWriteError(ble::Error{3, "Write not permitted"});
  EXPECT_EQ(link->writeAll(Bytes(10, 0x41), 5s, nullptr, sent), Wait::Failed);
  EXPECT_EQ(link->failure(), "the printer refused a write: Write not permitted");
  EXPECT_EQ(link->writeSome(Bytes(1, 0x41)), -1);
}

TEST(BleLink, TheRadioAndThePrinterEndTheLinkWithAReason) {
  {
    FakeBleRadio radio;
    radio.setInitialState(ble::CentralState::PoweredOff);
    auto link = linkOver(radio, "00:11:22:33:44:55");
    EXPECT_EQ(link->open(soon()), Wait::Failed);
    EXPECT_EQ(link->failure(), "Bluetooth is off");
  }
  {
    FakeBleRadio radio;
    auto printer = FakePeripheral::printer("BLE printer");
    radio.addPeripheral(printer);
    auto link = linkOver(radio, *printer->identifier());
    ASSERT_EQ(link->open(soon()), Wait::Done);
    printer->dropConnection();
    std::uint8_t byte;
    std::size_t got = 0;
    EXPECT_EQ(link->read({&byte, 1}, soon(), got), Wait::Failed);
    EXPECT_EQ(link->failure().rfind("the printer disconnected", 0), 0u) << link->failure();
  }
  {
    // A peripheral without the serial service is no printer.
    FakeBleRadio radio;
    auto other =
        std::make_shared<FakePeripheral>("6F1C2A9E-0000-0000-0000-000000000042", "Heart rate");
    other->addService("180D", {{"2A37", std::nullopt}});
    radio.addPeripheral(other);
    auto link = linkOver(radio, *other->identifier());
    EXPECT_EQ(link->open(soon()), Wait::Failed);
    EXPECT_EQ(link->failure().rfind("it offers no printer serial service", 0), 0u)
        << link->failure();
  }
  {
    // Closing from another thread ends a scan that would never find its printer.
    FakeBleRadio radio;
    auto link = linkOver(radio, "00:11:22:33:44:55");
    std::thread closer([&] {
      std::this_thread::sleep_for(50ms);
      link->close();
    });
    EXPECT_EQ(link->open(soon()), Wait::Closed);
    closer.join();
    EXPECT_EQ(link->failure(), "the connection was closed");
  }
}
