#include "printer_uri.hpp"

#include <orvante/printer.hpp>

#include <cctype>
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

namespace orvante::direct {
namespace {

// "serial:///dev/tty...[?baud=N]": the device file and its baud.
DeviceAddress parseSerialUri(std::string_view uri, std::string_view rest) {
  DeviceAddress address{"serial", "", 9600};
  const auto question = rest.find('?');
  address.path = std::string(rest.substr(0, question));
  if (!address.path.starts_with('/')) {
    throw Error("no device file in the printer address " + std::string(uri) +
                ": use serial:///dev/ttyUSB0?baud=9600");
  }
  if (question == std::string_view::npos) return address;
  const auto query = rest.substr(question + 1);
  if (!query.starts_with("baud=")) {
    throw Error("unknown setting \"" + std::string(query) + "\" in " + std::string(uri) +
                ": only baud=N is known");
  }
  const auto text = query.substr(5);
  int baud = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), baud);
  if (failure != std::errc() || end != text.data() + text.size() || baud <= 0) {
    throw Error("the baud \"" + std::string(text) + "\" is not a positive number");
  }
  address.baud = baud;
  return address;
}

// "usb:///dev/usb/lpN": the device file.
DeviceAddress parseUsbUri(std::string_view uri, std::string_view rest) {
  if (!rest.starts_with('/') || rest.find('?') != std::string_view::npos) {
    throw Error("no device file in the printer address " + std::string(uri) +
                ": use usb:///dev/usb/lp0");
  }
  return {"usb", std::string(rest), 0};
}

// "bt://AA:BB:CC:DD:EE:FF": six hexadecimal pairs, kept in upper case as
// BlueZ writes them.
DeviceAddress parseBluetoothUri(std::string_view uri, std::string_view rest) {
  if (rest.ends_with('/')) rest.remove_suffix(1);
  bool wellFormed = rest.size() == 17;
  for (std::size_t i = 0; wellFormed && i < rest.size(); ++i) {
    wellFormed = i % 3 == 2 ? rest[i] == ':' : std::isxdigit(static_cast<unsigned char>(rest[i]));
  }
  if (!wellFormed) {
    throw Error("\"" + std::string(rest) + "\" in " + std::string(uri) +
                " is no Bluetooth address: use bt://AA:BB:CC:DD:EE:FF");
  }
  std::string address(rest);
  for (auto& c : address) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return {"bt", address, 0};
}

}  // namespace

std::optional<DeviceAddress> parseDeviceUri(std::string_view uri) {
  const auto separator = uri.find("://");
  if (separator == std::string_view::npos) return std::nullopt;
  const auto scheme = uri.substr(0, separator);
  const auto rest = uri.substr(separator + 3);
  if (scheme == "serial") return parseSerialUri(uri, rest);
  if (scheme == "usb") return parseUsbUri(uri, rest);
  if (scheme == "bt") return parseBluetoothUri(uri, rest);
  return std::nullopt;
}

}  // namespace orvante::direct
