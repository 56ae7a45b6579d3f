#pragma once
// A session's platform over the BlueZ backends, with the stand-in BlueZ on
// a private bus that the library takes for the system bus.

#include <stdlib.h>

#include "links.hpp"
#include "platform/bluez/central.hpp"
#include "platform/bluez/serial_accessories.hpp"
#include "testing/bluez/fake_bluez.hpp"
#include "testing/bluez/private_bus.hpp"

namespace orvante::testing {

// Points the library's system bus at another address while alive.
class SystemBusAt {
 public:
  explicit SystemBusAt(const std::string& address) {
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
  }
  ~SystemBusAt() { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }
};

struct BluezRig {
  explicit BluezRig(double realFraction = 0)
      : system(bus.address()), bluez(bus.address()), rig(realFraction) {}

  Platform platform() const { return {rig.clock, rig.streams, accessories, radio}; }

  PrivateBus bus;
  SystemBusAt system;
  FakeBluez bluez;
  Rig rig;
  std::shared_ptr<platform::bluez::SerialAccessories> accessories =
      std::make_shared<platform::bluez::SerialAccessories>();
  std::shared_ptr<platform::bluez::BluezCentralFactory> radio =
      std::make_shared<platform::bluez::BluezCentralFactory>();
};

// Pauses take a little real time, so replies over the bus can arrive.
inline void realPauses(Rig& rig, std::chrono::milliseconds each = std::chrono::milliseconds(20)) {
  rig.clock->onPause([each](double) { std::this_thread::sleep_for(each); });
}

// Scans until a printer of that advertised name shows up, and opens it.
inline std::shared_ptr<ble::Peripheral> openBluezPrinter(TestSession& session, BluezRig& bluez,
                                                         const std::string& name) {
  std::shared_ptr<ble::Peripheral> found;
  bluez.rig.clock->onPause([&](double seconds) {
    if (seconds <= 0) return;
    eventually([&] {
      const auto list = session.BLEDeviceList.load();
      if (!list) return false;
      for (const auto& peripheral : *list) {
        if (peripheral->name() == name) found = peripheral;
      }
      return found != nullptr;
    });
  });
  session.searchBLEDevice(1);
  realPauses(bluez.rig);
  EXPECT_NE(found, nullptr) << name;
  if (!found) return nullptr;
  EXPECT_EQ(session.openport_ble(found), 1);
  bluez.rig.timeline->clear();
  return found;
}

}  // namespace orvante::testing
