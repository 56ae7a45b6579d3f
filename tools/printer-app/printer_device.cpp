#include "printer_device.hpp"

#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <orvante/printer.hpp>

namespace orvante::app {

namespace {

using namespace std::chrono_literals;

constexpr auto kConnectTimeout = 5s;
// A printer that takes no byte for this long has stopped.
constexpr auto kStallTimeout = 30s;

constexpr std::string_view kSchemes[] = {"socket", "serial", "bt", "ble"};

thread_local std::string lastProblem;

struct Connection {
  std::string address;
  std::optional<Printer> printer;
  std::string problem;  // why there is no printer
};

bool openDevice(pappl_device_t* device, const char* uri, const char* /*name*/) {
  auto* connection = new Connection;
  connection->address = printerAddressOf(uri);
  try {
    if (connection->address.empty()) throw Error("the address is not one this application knows");
    connection->printer.emplace(Printer::open(connection->address, kConnectTimeout));
    connection->printer->setStallTimeout(kStallTimeout);
  } catch (const Error& error) {
    connection->problem = error.what();
  }
  // Opened either way: PAPPL would otherwise hold the job and retry for ever;
  // the first write reports the problem and ends the job.
  papplDeviceSetData(device, connection);
  return true;
}

void closeDevice(pappl_device_t* device) {
  delete static_cast<Connection*>(papplDeviceGetData(device));
  papplDeviceSetData(device, nullptr);
}

ssize_t fail(pappl_device_t* device, const std::string& why) {
  lastProblem = why;
  papplDeviceError(device, "%s", why.c_str());
  return -1;
}

ssize_t writeDevice(pappl_device_t* device, const void* buffer, size_t bytes) {
  auto* connection = static_cast<Connection*>(papplDeviceGetData(device));
  if (!connection->printer) {
    return fail(device, "The printer at " + connection->address +
                            " could not be reached: " + connection->problem + ".");
  }
  try {
    connection->printer->send(ByteView(static_cast<const std::uint8_t*>(buffer), bytes));
  } catch (const Error& error) {
    return fail(device, std::string(error.what()) + ".");
  }
  return static_cast<ssize_t>(bytes);
}

// The application reads nothing through the job's device: the status is
// asked over a connection of its own.
ssize_t readDevice(pappl_device_t* /*device*/, void* /*buffer*/, size_t /*bytes*/) {
  return -1;
}

}  // namespace

std::string printerAddressOf(const char* deviceUri) {
  if (deviceUri == nullptr) return {};
  const std::string_view uri(deviceUri);
  if (uri.starts_with("socket://")) {
    // Options after the address ("?timeout=...") and a trailing path are not ours.
    std::string address(uri.substr(std::strlen("socket://")));
    address = address.substr(0, address.find_first_of("/?"));
    return address.empty() ? std::string{} : "tcp://" + address;
  }
  for (const auto scheme : kSchemes) {
    if (uri.starts_with(std::string(scheme) + "://")) return std::string(uri);
  }
  return {};
}

void usePrinterDevices() {
  for (const auto scheme : kSchemes) {
    const pappl_devtype_t type =
        scheme == "socket" ? PAPPL_DEVTYPE_SOCKET : PAPPL_DEVTYPE_CUSTOM_LOCAL;
    papplDeviceAddScheme(std::string(scheme).c_str(), type, nullptr, openDevice, closeDevice,
                         readDevice, writeDevice, nullptr, nullptr);
  }
}

std::string takeDeviceProblem() { return std::exchange(lastProblem, {}); }

}  // namespace orvante::app
