#include "device_printer.hpp"

#include <stdexcept>

#include <orvante/log.hpp>

namespace orvante::platform::linux_devices {

std::shared_ptr<AccessorySession> openDeviceSession(const std::shared_ptr<Accessory>& accessory,
                                                    const std::string& protocol) {
  auto printer = std::dynamic_pointer_cast<DevicePrinter>(accessory);
  if (!printer || protocol != transport::accessory_profile::kDataPathProtocol) return nullptr;
  try {
    auto streams = printer->open();
    if (!streams.input || !streams.output) return nullptr;
    return std::make_shared<AccessorySession>(accessory, protocol, std::move(streams));
  } catch (const std::runtime_error& failure) {
    log(failure.what());
    return nullptr;
  }
}

}  // namespace orvante::platform::linux_devices
