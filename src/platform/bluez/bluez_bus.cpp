#include "bluez_bus.hpp"

#include <chrono>

namespace orvante::platform::bluez {

std::unique_ptr<sdbus::IConnection> connectSystemBus() {
  try {
    return sdbus::createSystemBusConnection();
  } catch (const sdbus::Error&) {
    return nullptr;
  }
}

std::optional<ManagedObjects> managedObjects(sdbus::IConnection& connection) {
  try {
    auto root = sdbus::createProxy(connection, kService, "/");
    ManagedObjects objects;
    // A short limit: a bus without BlueZ answers at once, a stuck BlueZ
    // must not hold up the caller.
    root->callMethod("GetManagedObjects")
        .onInterface(kObjectManager)
        .withTimeout(std::chrono::seconds(5))
        .storeResultsTo(objects);
    return objects;
  } catch (const sdbus::Error&) {
    return std::nullopt;
  }
}

}  // namespace orvante::platform::bluez
