#pragma once
// The system's accessories on Linux: printers paired over the Bluetooth
// serial profile (BlueZ), then USB printers, then the serial devices the
// application added; a session opens through the backend that listed it.

#include <filesystem>
#include <memory>

#include <orvante/platform/accessory.hpp>

namespace orvante::platform::linux_devices {

class SystemAccessories final : public AccessoryManager {
 public:
  // `bluetooth` lists and opens the paired printers; USB printers are
  // looked for in `usbDirectory`.
  SystemAccessories(std::shared_ptr<AccessoryManager> bluetooth,
                    std::filesystem::path usbDirectory = "/dev/usb");

  std::vector<std::shared_ptr<Accessory>> connectedAccessories() override;
  std::shared_ptr<AccessorySession> openSession(const std::shared_ptr<Accessory>& accessory,
                                                const std::string& protocol) override;
  void showBluetoothAccessoryPicker() override { bluetooth_->showBluetoothAccessoryPicker(); }

 private:
  const std::shared_ptr<AccessoryManager> bluetooth_;
  const std::filesystem::path usbDirectory_;
};

}  // namespace orvante::platform::linux_devices
