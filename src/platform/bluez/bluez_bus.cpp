#include "bluez_bus.hpp"

namespace orvante::platform::bluez {

std::unique_ptr<sdbus::IConnection> connectSystemBus() {
  try {
    return sdbus::createSystemBusConnection();
  } catch (const sdbus::Error&) {
    return nullptr;
  }
}

}  // namespace orvante::platform::bluez
