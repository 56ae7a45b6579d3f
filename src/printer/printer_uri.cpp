#include "printer_uri.hpp"

#include <orvante/printer.hpp>

#include <charconv>

namespace orvante::direct {

PrinterAddress parsePrinterUri(std::string_view uri) {
  const auto separator = uri.find("://");
  if (separator == std::string_view::npos) {
    throw Error("\"" + std::string(uri) + "\" is no printer address: use tcp://host[:port]");
  }
  PrinterAddress address;
  address.scheme = std::string(uri.substr(0, separator));
  if (address.scheme == "ble") {
    // A BLE address or identifier holds colons of its own: all of it is the host.
    address.host = std::string(uri.substr(separator + 3));
    address.port = 0;
    if (address.host.empty()) throw Error("no device address in the printer address " + std::string(uri));
    return address;
  }
  if (address.scheme != "tcp") {
    throw Error("printers at " + address.scheme + ":// addresses are not supported yet: use tcp://host[:port]");
  }
  std::string_view rest = uri.substr(separator + 3);
  if (const auto slash = rest.find('/'); slash != std::string_view::npos) rest = rest.substr(0, slash);
  std::string_view portText;
  if (rest.starts_with('[')) {
    const auto close = rest.find(']');
    if (close == std::string_view::npos) throw Error("an IPv6 address lacks its ']' in " + std::string(uri));
    address.host = std::string(rest.substr(1, close - 1));
    rest = rest.substr(close + 1);
    if (rest.starts_with(':')) portText = rest.substr(1);
    else if (!rest.empty()) throw Error("unexpected text after the address in " + std::string(uri));
  } else {
    const auto colon = rest.rfind(':');
    address.host = std::string(rest.substr(0, colon));
    if (colon != std::string_view::npos) portText = rest.substr(colon + 1);
  }
  if (address.host.empty()) throw Error("no host in the printer address " + std::string(uri));
  if (!portText.empty()) {
    int port = 0;
    const auto [end, failure] = std::from_chars(portText.data(), portText.data() + portText.size(), port);
    if (failure != std::errc() || end != portText.data() + portText.size() || port < 1 || port > 65535) {
      throw Error("the port \"" + std::string(portText) + "\" is not a number from 1 to 65535");
    }
    address.port = port;
  }
  return address;
}

}  // namespace orvante::direct
