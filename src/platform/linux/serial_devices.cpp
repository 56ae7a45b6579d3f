#include "serial_devices.hpp"

#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <stdexcept>

#include "../../transport/link_streams.hpp"
#include "device_files.hpp"
#include "device_printer.hpp"
#include "tty_settings.hpp"

namespace orvante::platform::linux_devices {
namespace {

struct SerialDevice {
  std::string path;
  int baud;
  FlowControl flow;
};

std::mutex devicesMutex;
std::vector<SerialDevice> devices;

}  // namespace

int openSerialDescriptor(const std::string& path, int baud, FlowControl flow) {
  if (!speedOf(baud)) throw std::runtime_error("the baud " + std::to_string(baud) + " is not one a tty has");
  const int fd = openDeviceFile(path);
  try {
    setRawLine(fd, path, baud, flow);
  } catch (...) {
    ::close(fd);
    throw;
  }
  // Bytes the device received before it was opened belong to nobody.
  ::tcflush(fd, TCIFLUSH);
  return fd;
}

StreamPair openSerialDevice(const std::string& path, int baud, FlowControl flow) {
  auto streams = transport::adoptDeviceStreams(openSerialDescriptor(path, baud, flow));
  if (!streams.input) throw std::runtime_error("no stream pair for " + path + ": out of descriptors");
  return streams;
}

std::vector<std::shared_ptr<Accessory>> listSerialPrinters() {
  std::vector<SerialDevice> added;
  {
    std::lock_guard lock(devicesMutex);
    added = devices;
  }
  std::vector<std::shared_ptr<Accessory>> printers;
  for (const auto& device : added) {
    printers.push_back(std::make_shared<DevicePrinter>(
        device.path, device.path,
        "serial://" + device.path + "?baud=" + std::to_string(device.baud),
        [device] { return openSerialDevice(device.path, device.baud, device.flow); }));
  }
  return printers;
}

}  // namespace orvante::platform::linux_devices

namespace orvante {

void addSerialPrinter(std::string path, int baud, FlowControl flow) {
  if (!platform::linux_devices::speedOf(baud)) {
    throw std::invalid_argument("the baud " + std::to_string(baud) + " is not one a tty has");
  }
  std::lock_guard lock(platform::linux_devices::devicesMutex);
  auto& devices = platform::linux_devices::devices;
  auto same = std::find_if(devices.begin(), devices.end(),
                           [&](const auto& device) { return device.path == path; });
  if (same != devices.end()) {
    same->baud = baud;
    same->flow = flow;
  } else {
    devices.push_back({std::move(path), baud, flow});
  }
}

bool removeSerialPrinter(const std::string& path) {
  std::lock_guard lock(platform::linux_devices::devicesMutex);
  auto& devices = platform::linux_devices::devices;
  return std::erase_if(devices, [&](const auto& device) { return device.path == path; }) > 0;
}

}  // namespace orvante
