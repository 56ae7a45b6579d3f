#include "system_services.hpp"

#include "../platform/bluez/central.hpp"
#include "../platform/bluez/serial_accessories.hpp"
#include "../platform/linux/system_accessories.hpp"
#include "../transport/link_streams.hpp"

namespace orvante {

namespace runtime {

const SystemServices& systemServices() {
  static const SystemServices services = [] {
    // Both reach BlueZ on first use and stand in for nothing without it;
    // USB printers and the application's serial devices follow the paired
    // Bluetooth printers.
    auto bluetoothSerial = std::make_shared<platform::bluez::SerialAccessories>();
    return SystemServices{
        Platform{
            std::make_shared<SystemClock>(),
            std::make_shared<transport::SocketStreamFactory>(),
            std::make_shared<platform::linux_devices::SystemAccessories>(bluetoothSerial),
            std::make_shared<platform::bluez::BluezCentralFactory>(),
        },
        bluetoothSerial,
    };
  }();
  return services;
}

}  // namespace runtime

Platform Platform::system() {
  return runtime::systemServices().platform;
}

}  // namespace orvante
