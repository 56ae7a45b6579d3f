// The BlueZ services seen through their seams: the thread callbacks come
// on, what a machine without Bluetooth gives, and the serial-profile
// printers as accessories, opened through the profile BlueZ hands sockets to.

#include <pthread.h>

#include <gtest/gtest.h>

#include <future>

#include "bluez_rig.hpp"
#include "platform/bluez/shared_bus.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

std::string threadName() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

// Records the central's callbacks with the thread each came on.
struct Recorder final : ble::CentralDelegate {
  void centralManagerDidUpdateState(ble::Central& central) override {
    add("state " + std::to_string(static_cast<int>(central.state())));
  }
  void centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>& peripheral,
                      const ble::AdvertisementData& data, std::int64_t) override {
    add("found " + data.localName.value_or("-") + " " + peripheral->identifier().value_or("?"));
  }
  void centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>&) override {
    add("connected");
  }
  void centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>&,
                      const ble::Error* error) override {
    add(error ? "lost " + error->description : "disconnected");
  }
  void add(std::string event) {
    std::lock_guard lock(mutex);
    if (threadName() != "myCentralQueue") wrongThread = true;
    events.push_back(std::move(event));
  }
  bool has(const std::string& event) {
    std::lock_guard lock(mutex);
    return std::find(events.begin(), events.end(), event) != events.end();
  }
  std::mutex mutex;
  std::vector<std::string> events;
  bool wrongThread = false;
};

}  // namespace

TEST(BluezServices, CentralCallbacksComeOnTheNamedQueueAndFollowTheAdapter) {
  BluezRig bluez;
  bluez.bluez.addPrinter("00:11:62:00:00:01", "P1");
  Recorder recorder;
  auto central = bluez.radio->makeCentral(recorder, "myCentralQueue");
  EXPECT_EQ(central->state(), ble::CentralState::PoweredOn);
  central->scanForPeripherals();
  EXPECT_TRUE(eventually([&] { return recorder.has("found P1 00:11:62:00:00:01"); }));
  central->stopScan();
  bluez.bluez.setPowered(false);
  EXPECT_TRUE(eventually([&] { return recorder.has("state 4"); }));
  EXPECT_EQ(central->state(), ble::CentralState::PoweredOff);
  // A delegate cleared hears nothing more.
  central->setDelegate(nullptr);
  const auto heard = [&] {
    std::lock_guard lock(recorder.mutex);
    return recorder.events.size();
  }();
  bluez.bluez.setPowered(true);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(central->state(), ble::CentralState::PoweredOn);
  std::lock_guard lock(recorder.mutex);
  EXPECT_EQ(recorder.events.size(), heard);
  EXPECT_FALSE(recorder.wrongThread);
}

TEST(BluezServices, WithoutBluezOrWithoutABusTheRadioIsUnsupportedAndNoAccessoryIsListed) {
  {
    PrivateBus bus;
    SystemBusAt system(bus.address());
    Recorder recorder;
    auto central = platform::bluez::BluezCentralFactory().makeCentral(recorder, "myCentralQueue");
    EXPECT_EQ(central->state(), ble::CentralState::Unsupported);
    central->scanForPeripherals();
    central->stopScan();
    EXPECT_TRUE(platform::bluez::SerialAccessories().connectedAccessories().empty());
  }
  SystemBusAt nowhere("unix:path=/nonexistent/orvante-bus");
  Recorder recorder;
  auto central = platform::bluez::BluezCentralFactory().makeCentral(recorder, "myCentralQueue");
  EXPECT_EQ(central->state(), ble::CentralState::Unsupported);
  platform::bluez::SerialAccessories accessories;
  EXPECT_TRUE(accessories.connectedAccessories().empty());
}

TEST(BluezServices, PairedSerialPortPrintersAreTheAccessories) {
  BluezRig bluez;
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:01", "Printer A");
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:02", "Never paired", false);
  bluez.bluez.addPrinter("00:11:62:00:00:01", "BLE only");
  const auto accessories = bluez.accessories->connectedAccessories();
  ASSERT_EQ(accessories.size(), 1u);
  EXPECT_EQ(accessories[0]->name(), "Printer A");
  EXPECT_EQ(accessories[0]->protocolStrings(), std::vector<std::string>{kDataPath});
  EXPECT_EQ(accessories[0]->valueForKey("macAddress"), "00:11:62:AA:BB:01");
  EXPECT_EQ(accessories[0]->valueForKey("serialNumber"), std::nullopt);

  // Another protocol, or a profile connection BlueZ refuses, gives no session.
  EXPECT_EQ(bluez.accessories->openSession(accessories[0], "com.example.other"), nullptr);
  bluez.bluez.failMethod("/org/bluez/hci0/dev_00_11_62_AA_BB_01", "ConnectProfile",
                         "org.bluez.Error.Failed");
  EXPECT_EQ(bluez.accessories->openSession(accessories[0], kDataPath), nullptr);
}

TEST(BluezServices, AnAccessorySessionCarriesALabelAndAQueryReply) {
  BluezRig bluez(0.5);
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:01", "Printer A");
  bluez.bluez.setSerialResponder(answering({{"~!T", "OV-203\r"}}));
  TestSession session(bluez.platform());
  EXPECT_EQ(session.openportMFI(), 1);
  EXPECT_EQ(session.accessory()->name(), "Printer A");
  EXPECT_EQ(session.BTMAC(), "00:11:62:AA:BB:01");
  ASSERT_NE(session.session(), nullptr);
  ASSERT_TRUE(eventually([&] { return session.stream_status() == 2; }));

  EXPECT_EQ(session.printlabel(1, 1), 1);
  EXPECT_EQ(session.printer_name(), bytesOf("OV-203\r"));
  auto printer = bluez.bluez.serialPeer();
  ASSERT_NE(printer, nullptr);
  ASSERT_TRUE(printer->waitForBytes(14));
  EXPECT_EQ(textOf(printer->received()), "PRINT 1,1\r\n~!T");
  EXPECT_EQ(session.closeport(), 1);
  EXPECT_TRUE(printer->waitForHangUp());
}

// A program may end while the bus's thread still holds a reply: the exit
// waits for that dispatch instead of freeing what the reply's values need.
TEST(BluezServices, AProgramThatEndsDuringADispatchEndsCleanly) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // Made before the bus, so it ends after the library's exit steps; it
  // holds the exit there until the dispatch has let its value go, as a
  // slower exit would.
  struct Dispatch {
    std::promise<void> holding, done;
    ~Dispatch() { done.get_future().wait_for(std::chrono::seconds(2)); }
  };
  EXPECT_EXIT(
      {
        static PrivateBus bus;
        static Dispatch dispatch;
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
        static const auto shared = platform::bluez::SharedBus::acquire();
        shared->post([] {
          {
            const sdbus::Variant value(std::string("a reply's value"));
            dispatch.holding.set_value();
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
          }
          dispatch.done.set_value();
        });
        dispatch.holding.get_future().wait();
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}
