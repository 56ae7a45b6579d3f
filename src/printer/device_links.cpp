#include "device_links.hpp"

#include <orvante/platform/platform.hpp>
#include <orvante/printer.hpp>

#include <stdexcept>

#include "../platform/linux/serial_devices.hpp"
#include "../platform/linux/usb_printers.hpp"
#include "../transport/bluetooth_address.hpp"

namespace orvante::direct {
namespace {

const char* const kDataPath = "com.issc.datapath";

StreamPair bluetoothStreams(const std::string& address, AccessoryManager& accessories) {
  for (const auto& accessory : accessories.connectedAccessories()) {
    const auto mac = accessory->valueForKey("macAddress");
    if (!mac || !transport::sameBluetoothAddress(*mac, address)) continue;
    auto session = accessories.openSession(accessory, kDataPath);
    if (!session) {
      throw Error("cannot connect to " + address +
                  ": its serial port connection was refused or not made in time");
    }
    return {session->inputStream(), session->outputStream()};
  }
  throw Error("no printer with the Bluetooth address " + address +
              " is paired (or Bluetooth is not available)");
}

}  // namespace

std::string describeDevice(const DeviceAddress& address) {
  return address.path;
}

StreamPair openDeviceStreams(const DeviceAddress& address, AccessoryManager& accessories) {
  if (address.scheme == "bt") return bluetoothStreams(address.path, accessories);
  try {
    if (address.scheme == "serial") {
      return platform::linux_devices::openSerialDevice(address.path, address.baud);
    }
    return platform::linux_devices::openUsbPrinter(address.path);
  } catch (const Error&) {
    throw;
  } catch (const std::runtime_error& failure) {
    throw Error(failure.what());
  }
}

StreamPair openDeviceStreams(const DeviceAddress& address) {
  return openDeviceStreams(address, *Platform::system().accessories);
}

}  // namespace orvante::direct
