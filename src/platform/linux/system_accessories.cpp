#include "system_accessories.hpp"

#include "device_printer.hpp"
#include "serial_devices.hpp"
#include "usb_printers.hpp"

namespace orvante::platform::linux_devices {

SystemAccessories::SystemAccessories(std::shared_ptr<AccessoryManager> bluetooth,
                                     std::filesystem::path usbDirectory)
    : bluetooth_(std::move(bluetooth)), usbDirectory_(std::move(usbDirectory)) {}

std::vector<std::shared_ptr<Accessory>> SystemAccessories::connectedAccessories() {
  auto accessories = bluetooth_->connectedAccessories();
  for (auto&& more : {listUsbPrinters(usbDirectory_), listSerialPrinters()}) {
    accessories.insert(accessories.end(), more.begin(), more.end());
  }
  return accessories;
}

std::shared_ptr<AccessorySession> SystemAccessories::openSession(
    const std::shared_ptr<Accessory>& accessory, const std::string& protocol) {
  if (std::dynamic_pointer_cast<DevicePrinter>(accessory)) {
    return openDeviceSession(accessory, protocol);
  }
  return bluetooth_->openSession(accessory, protocol);
}

}  // namespace orvante::platform::linux_devices
