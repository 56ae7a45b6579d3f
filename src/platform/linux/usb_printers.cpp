#include "usb_printers.hpp"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <system_error>

#include "../../transport/link_streams.hpp"
#include "device_files.hpp"
#include "device_id.hpp"
#include "device_printer.hpp"

namespace orvante::platform::linux_devices {
namespace {

constexpr std::size_t kIdLimit = 1024;
// The printer class driver's "get device ID" request, which the kernel's
// headers do not carry.
constexpr unsigned long kGetDeviceId = _IOC(_IOC_READ, 'P', 1, kIdLimit);

// N of "lpN"; none for any other name.
std::optional<int> printerNumber(const std::string& name) {
  if (name.size() < 3 || name.compare(0, 2, "lp") != 0) return std::nullopt;
  int number = 0;
  const auto [end, failure] = std::from_chars(name.data() + 2, name.data() + name.size(), number);
  if (failure != std::errc() || end != name.data() + name.size()) return std::nullopt;
  return number;
}

}  // namespace

std::string usbPrinterName(const std::filesystem::path& device) {
  const std::string fallback = device.filename().string();
  const int fd = ::open(device.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return fallback;
  std::array<std::uint8_t, kIdLimit> reply{};
  const int rc = ::ioctl(fd, kGetDeviceId, reply.data());
  ::close(fd);
  if (rc < 0) return fallback;
  const auto fields = parseDeviceId(ByteView(reply.data(), reply.size()));
  if (!fields) return fallback;
  const auto name = printerNameOf(*fields);
  return name.empty() ? fallback : name;
}

StreamPair openUsbPrinter(const std::string& path) {
  auto streams = transport::adoptDeviceStreams(openDeviceFile(path));
  if (!streams.input) throw std::runtime_error("no stream pair for " + path + ": out of descriptors");
  return streams;
}

std::vector<std::shared_ptr<Accessory>> listUsbPrinters(const std::filesystem::path& directory) {
  std::vector<std::pair<int, std::filesystem::path>> devices;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    if (auto number = printerNumber(entry->path().filename().string())) {
      devices.emplace_back(*number, entry->path());
    }
  }
  std::sort(devices.begin(), devices.end());
  std::vector<std::shared_ptr<Accessory>> printers;
  for (const auto& [number, device] : devices) {
    const std::string path = device.string();
    printers.push_back(std::make_shared<DevicePrinter>(usbPrinterName(device), path, "usb://" + path,
                                                       [path] { return openUsbPrinter(path); }));
  }
  return printers;
}

}  // namespace orvante::platform::linux_devices
