#include "printer_links.hpp"

#include <orvante/error.hpp>

#include <cctype>
#include <charconv>
#include <stdexcept>
#include <string>

#include "../platform/bluez/serial_accessories.hpp"
#include "../platform/linux/device_files.hpp"
#include "../platform/linux/serial_devices.hpp"
#include "../transport/ble_link.hpp"
#include "../transport/bluetooth_address.hpp"
#include "../transport/descriptor_link.hpp"
#include "../transport/simulated_link.hpp"
#include "../transport/accessory_profile.hpp"
#include "system_services.hpp"

namespace orvante::runtime {
namespace {

using transport::Link;

std::string quoted(std::string_view uri) {
  return "\"" + std::string(uri) + "\"";
}

int portNumber(std::string_view text) {
  int port = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (failure != std::errc() || end != text.data() + text.size() || port < 1 || port > 65535) {
    throw Error("the port \"" + std::string(text) + "\" is not a number from 1 to 65535");
  }
  return port;
}

// "tcp://host[:port]", "[v6 address]:port" for IPv6.
std::shared_ptr<Link> tcp(std::string_view uri, std::string_view rest) {
  if (const auto slash = rest.find('/'); slash != std::string_view::npos)
    rest = rest.substr(0, slash);
  std::string host;
  std::string_view portText;
  if (rest.starts_with('[')) {
    const auto close = rest.find(']');
    if (close == std::string_view::npos)
      throw Error("an IPv6 address lacks its ']' in " + std::string(uri));
    host = std::string(rest.substr(1, close - 1));
    rest = rest.substr(close + 1);
    if (rest.starts_with(':'))
      portText = rest.substr(1);
    else if (!rest.empty())
      throw Error("unexpected text after the address in " + std::string(uri));
  } else {
    const auto colon = rest.rfind(':');
    host = std::string(rest.substr(0, colon));
    if (colon != std::string_view::npos) portText = rest.substr(colon + 1);
  }
  if (host.empty()) throw Error("no host in the printer address " + std::string(uri));
  auto link = transport::tcpLink(host, portText.empty() ? 9100 : portNumber(portText));
  if (!link) throw Error("cannot connect to " + host + ": out of descriptors or threads");
  return link;
}

std::shared_ptr<Link> device(int fd, const std::string& path) {
  auto link = transport::descriptorLink(fd, transport::DescriptorKind::Device, path);
  if (!link) throw Error("cannot open " + path + ": out of descriptors or threads");
  return link;
}

// "serial:///dev/tty...[?baud=N]".
std::shared_ptr<Link> serial(std::string_view uri, std::string_view rest) {
  const auto question = rest.find('?');
  const std::string path(rest.substr(0, question));
  if (!path.starts_with('/')) {
    throw Error("no device file in the printer address " + std::string(uri) +
                ": use serial:///dev/ttyUSB0?baud=9600");
  }
  int baud = 9600;
  if (question != std::string_view::npos) {
    const auto query = rest.substr(question + 1);
    if (!query.starts_with("baud=")) {
      throw Error("unknown setting \"" + std::string(query) + "\" in " + std::string(uri) +
                  ": only baud=N is known");
    }
    const auto text = query.substr(5);
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), baud);
    if (failure != std::errc() || end != text.data() + text.size() || baud <= 0) {
      throw Error("the baud \"" + std::string(text) + "\" is not a positive number");
    }
  }
  return device(platform::linux_devices::openSerialDescriptor(path, baud), path);
}

// "usb:///dev/usb/lpN".
std::shared_ptr<Link> usb(std::string_view uri, std::string_view rest) {
  if (!rest.starts_with('/') || rest.find('?') != std::string_view::npos) {
    throw Error("no device file in the printer address " + std::string(uri) +
                ": use usb:///dev/usb/lp0");
  }
  const std::string path(rest);
  return device(platform::linux_devices::openDeviceFile(path), path);
}

// "bt://AA:BB:CC:DD:EE:FF": six hexadecimal pairs.
std::shared_ptr<Link> bluetooth(std::string_view uri, std::string_view rest,
                                const SystemServices& services) {
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
  auto& paired = *services.bluetoothSerial;
  for (const auto& printer : paired.connectedAccessories()) {
    const auto mac = printer->valueForKey(transport::accessory_profile::kMacAddressKey);
    if (!mac || !transport::sameBluetoothAddress(*mac, address)) continue;
    const int fd = paired.connectSocket(printer);
    if (fd < 0) {
      throw Error("cannot connect to " + address +
                  ": its serial port connection was refused or not made in time");
    }
    auto link = transport::descriptorLink(fd, transport::DescriptorKind::Socket, address);
    if (!link) throw Error("cannot connect to " + address + ": out of descriptors or threads");
    return link;
  }
  throw Error("no printer with the Bluetooth address " + address +
              " is paired (or Bluetooth is not available)");
}

// "ble://ADDRESS": the address or identifier holds colons of its own.
std::shared_ptr<Link> ble(std::string_view uri, std::string_view rest,
                          const SystemServices& services) {
  if (rest.empty()) throw Error("no device address in the printer address " + std::string(uri));
  return transport::bleLink(services.platform.ble, std::string(rest));
}

// "sim://NAME".
std::shared_ptr<Link> simulated(std::string_view uri, std::string_view rest) {
  auto link = transport::simulatedLink(std::string(rest));
  if (!link)
    throw Error("no simulated printer is named " + quoted(rest) + " in " + std::string(uri));
  return link;
}

}  // namespace

std::shared_ptr<Link> linkTo(std::string_view uri, const SystemServices& services) {
  const auto separator = uri.find("://");
  if (separator == std::string_view::npos) {
    throw Error(quoted(uri) + " is no printer address: use tcp://host[:port]");
  }
  const auto scheme = uri.substr(0, separator);
  const auto rest = uri.substr(separator + 3);
  try {
    if (scheme == "tcp") return tcp(uri, rest);
    if (scheme == "serial") return serial(uri, rest);
    if (scheme == "usb") return usb(uri, rest);
    if (scheme == "bt") return bluetooth(uri, rest, services);
    if (scheme == "ble") return ble(uri, rest, services);
    if (scheme == "sim") return simulated(uri, rest);
  } catch (const Error&) {
    throw;
  } catch (const std::runtime_error& failure) {
    // The devices' own failures name the device file.
    throw Error(failure.what());
  }
  throw Error(
      "printers at " + std::string(scheme) +
      ":// addresses are not known: use tcp://, serial://, usb://, bt://, ble:// or sim://");
}

}  // namespace orvante::runtime
