#pragma once
// A printer on a device file (a USB printer device, a serial tty) as an
// accessory offering "com.issc.datapath". Its properties: "path", the
// device file, and "uri", its address for orvante::Printer::open.

#include <functional>

#include <orvante/platform/accessory.hpp>

#include "../../transport/accessory_profile.hpp"

namespace orvante::platform::linux_devices {

class DevicePrinter final : public Accessory {
 public:
  // `open` gives the device's stream pair or throws std::runtime_error.
  DevicePrinter(std::string name, std::string path, std::string uri,
                std::function<StreamPair()> open)
      : name_(std::move(name)), path_(std::move(path)), uri_(std::move(uri)),
        open_(std::move(open)) {}

  std::vector<std::string> protocolStrings() const override { return {transport::accessory_profile::kDataPathProtocol}; }
  std::string name() const override { return name_; }
  std::optional<std::string> valueForKey(const std::string& key) const override {
    if (key == "path") return path_;
    if (key == "uri") return uri_;
    return std::nullopt;
  }
  StreamPair open() const { return open_(); }

 private:
  const std::string name_, path_, uri_;
  const std::function<StreamPair()> open_;
};

// A session on a device printer for its protocol; null for another
// accessory or protocol, or when the device cannot be opened.
std::shared_ptr<AccessorySession> openDeviceSession(const std::shared_ptr<Accessory>& accessory,
                                                    const std::string& protocol);

}  // namespace orvante::platform::linux_devices
