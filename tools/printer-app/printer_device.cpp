#include "printer_device.hpp"

#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <orvante/delivery.hpp>
#include <orvante/discovery.hpp>

#include "printer_status.hpp"

namespace orvante::app {

namespace {

using namespace std::chrono_literals;

constexpr std::string_view kSchemes[] = {"socket", "serial", "bt", "ble"};

// A job's labels go through a delivery: each is confirmed by the printer,
// and a printer that goes away or reports a fault makes the job wait.
DeliveryOptions deliveryOptions() {
  DeliveryOptions options;
  options.connectTimeout = 5s;
  options.confirmTimeout = 30s;
  options.firstPause = 500ms;
  options.longestPause = 15s;
  return options;
}

struct Connection {
  explicit Connection(std::string uri)
      : address(std::move(uri)), delivery(address, deliveryOptions()) {}
  std::string address;
  Delivery delivery;
};

bool openDevice(pappl_device_t* device, const char* uri, const char* /*name*/) {
  const std::string address = printerAddressOf(uri);
  if (address.empty()) {
    papplDeviceError(device, "The address %s is not one this application knows.", uri);
    return false;
  }
  papplDeviceSetData(device, new Connection(address));
  return true;
}

void closeDevice(pappl_device_t* device) {
  delete static_cast<Connection*>(papplDeviceGetData(device));
  papplDeviceSetData(device, nullptr);
}

// Bytes PAPPL writes on its own go through the same delivery.
ssize_t writeDevice(pappl_device_t* device, const void* buffer, size_t bytes) {
  auto* connection = static_cast<Connection*>(papplDeviceGetData(device));
  try {
    connection->delivery.print(ByteView(static_cast<const std::uint8_t*>(buffer), bytes));
  } catch (const Error& error) {
    papplDeviceError(device, "%s", error.what());
    return -1;
  }
  return static_cast<ssize_t>(bytes);
}

// The application reads nothing through the job's device: the status is
// asked over a connection of its own.
ssize_t readDevice(pappl_device_t* /*device*/, void* /*buffer*/, size_t /*bytes*/) {
  return -1;
}

bool ours(pappl_job_t* job) {
  return !printerAddressOf(papplPrinterGetDeviceURI(papplJobGetPrinter(job))).empty();
}

// The job waits with the reason on the printer and in the job's message;
// both clear when it goes on.
void showWait(pappl_job_t* job, const Delivery::Wait& wait) {
  pappl_printer_t* printer = papplJobGetPrinter(job);
  if (wait.reason.empty()) {
    papplPrinterSetReasons(printer, PAPPL_PREASON_NONE, kStatusReasons | PAPPL_PREASON_OFFLINE);
    papplJobSetMessage(job, "Printing.");
    return;
  }
  pappl_preason_t reasons = PAPPL_PREASON_OFFLINE;
  if (wait.fault) reasons = reasonsFor(*wait.fault);
  // Paused, or a fault without a reason of its own.
  if (reasons == PAPPL_PREASON_NONE) reasons = PAPPL_PREASON_OTHER;
  papplPrinterSetReasons(printer, reasons, PAPPL_PREASON_NONE);
  papplJobSetMessage(job, "Waiting for the printer: %s.", wait.reason.c_str());
  papplLogJob(job, PAPPL_LOGLEVEL_WARN, "Waiting for the printer: %s", wait.reason.c_str());
}

// PAPPL's device list: the printers the library finds. A network printer
// is a socket:// device, the others keep their own addresses; USB printers
// are PAPPL's own.
bool listDevices(pappl_device_cb_t found, void* data, pappl_deverror_cb_t, void*) {
  for (const auto& printer : discover(std::chrono::seconds(2))) {
    std::string uri = printer.address;
    if (uri.starts_with("usb://")) continue;
    if (uri.starts_with("tcp://")) uri = "socket://" + uri.substr(std::strlen("tcp://"));
    const std::string info = printer.name.empty() ? uri : printer.name;
    if (found(info.c_str(), uri.c_str(), "", data)) return true;
  }
  return false;
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
    // One scheme lists every kind the library finds.
    papplDeviceAddScheme(std::string(scheme).c_str(), type,
                         scheme == "socket" ? listDevices : nullptr, openDevice, closeDevice,
                         readDevice, writeDevice, nullptr, nullptr);
  }
}

bool deliverLabel(pappl_job_t* job, pappl_device_t* device, ByteView label) {
  if (!ours(job)) {
    // PAPPL's own devices (USB) write without a word back.
    if (papplDeviceWrite(device, label.data(), label.size()) < 0) {
      papplJobSetMessage(job, "The printer stopped taking data.");
      return false;
    }
    papplDeviceFlush(device);
    return true;
  }
  auto& delivery = static_cast<Connection*>(papplDeviceGetData(device))->delivery;
  delivery.onWaiting([job](const Delivery::Wait& wait) { showWait(job, wait); });
  delivery.stopWhen([job] { return papplJobIsCanceled(job); });
  try {
    delivery.print(label);
    return true;
  } catch (const Error& error) {
    papplJobSetMessage(job, "%s", error.what());
    return false;
  }
}

}  // namespace orvante::app
