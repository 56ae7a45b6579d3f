#pragma once
// USB printers through the kernel's printer class driver: the /dev/usb/lpN
// devices, named by their IEEE 1284 device ID.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <orvante/platform/accessory.hpp>

namespace orvante::platform::linux_devices {

// The lpN devices of the directory in number order, as accessories; none
// when the directory is missing.
std::vector<std::shared_ptr<Accessory>> listUsbPrinters(
    const std::filesystem::path& directory = "/dev/usb");

// The printer's name from its device ID; the device file's name when the
// device cannot be opened or reports no ID.
std::string usbPrinterName(const std::filesystem::path& device);

// The device's stream pair. Throws std::runtime_error naming the path.
StreamPair openUsbPrinter(const std::string& path);

}  // namespace orvante::platform::linux_devices
