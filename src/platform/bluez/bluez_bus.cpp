#include "bluez_bus.hpp"

namespace orvante::platform::bluez {

std::unique_ptr<sdbus::IConnection> connectSystemBus() {
  try {
    return sdbus::createSystemBusConnection();
  } catch (const sdbus::Error&) {
    return nullptr;
  }
}

void makeVariantsOutliveThisBackend() {
  [[maybe_unused]] const sdbus::Variant made;
}

}  // namespace orvante::platform::bluez
