#pragma once
// The printer addresses the second door opens.

#include <optional>
#include <string>
#include <string_view>

namespace orvante::direct {

struct PrinterAddress {
  std::string scheme;
  std::string host;
  int port = 9100;
};

// Parses "tcp://host[:port]" ("[v6 address]:port" for IPv6) and
// "ble://ADDRESS" (the device address or identifier, kept whole). Throws
// orvante::Error for anything else, naming what is wrong.
PrinterAddress parsePrinterUri(std::string_view uri);

// A printer on a device of this computer or paired with it:
// "serial:///dev/ttyUSB0?baud=115200" (9600 unless told),
// "usb:///dev/usb/lp0" or "bt://AA:BB:CC:DD:EE:FF".
struct DeviceAddress {
  std::string scheme;  // "serial", "usb" or "bt"
  std::string path;    // the device file; the Bluetooth address for "bt"
  int baud = 9600;
};

// The device address of a serial://, usb:// or bt:// URI; none for another
// scheme. Throws orvante::Error naming what is wrong with such a URI.
std::optional<DeviceAddress> parseDeviceUri(std::string_view uri);

}  // namespace orvante::direct
