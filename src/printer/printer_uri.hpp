#pragma once
// The printer addresses the second door opens.

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

}  // namespace orvante::direct
