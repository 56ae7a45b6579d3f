#include <orvante/platform/platform.hpp>

#include "../platform/bluez/central.hpp"
#include "../platform/bluez/serial_accessories.hpp"
#include "../platform/linux/system_accessories.hpp"
#include "../transport/socket_streams.hpp"

namespace orvante {

Platform Platform::system() {
  static const Platform services{
      std::make_shared<SystemClock>(),
      std::make_shared<transport::SocketStreamFactory>(),
      // Both reach BlueZ on first use and stand in for nothing without it;
      // USB printers and the application's serial devices follow the
      // paired Bluetooth printers.
      std::make_shared<platform::linux_devices::SystemAccessories>(
          std::make_shared<platform::bluez::SerialAccessories>()),
      std::make_shared<platform::bluez::BluezCentralFactory>(),
  };
  return services;
}

}  // namespace orvante
