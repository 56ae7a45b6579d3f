#pragma once
// The GATT services and characteristics of a BlueZ device as the BLE seam
// shows them, each remembering its D-Bus object path.

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <orvante/platform/ble.hpp>

namespace orvante::platform::bluez {

class GattCharacteristic final : public ble::Characteristic {
 public:
  GattCharacteristic(std::string path, ble::Uuid uuid, std::optional<Bytes> value)
      : path_(std::move(path)), uuid_(std::move(uuid)), value_(std::move(value)) {}
  ble::Uuid uuid() const override { return uuid_; }
  std::optional<Bytes> value() const override {
    std::lock_guard lock(mutex_);
    return value_;
  }
  void setValue(Bytes value) {
    std::lock_guard lock(mutex_);
    value_ = std::move(value);
  }
  const std::string& path() const { return path_; }

 private:
  const std::string path_;
  const ble::Uuid uuid_;
  mutable std::mutex mutex_;
  std::optional<Bytes> value_;
};

class GattService final : public ble::Service {
 public:
  GattService(std::string path, ble::Uuid uuid,
              std::vector<std::shared_ptr<GattCharacteristic>> characteristics)
      : path_(std::move(path)), uuid_(std::move(uuid)), all_(std::move(characteristics)) {}
  ble::Uuid uuid() const override { return uuid_; }
  // Empty until discovered, as the seam promises.
  std::vector<std::shared_ptr<ble::Characteristic>> characteristics() const override {
    std::lock_guard lock(mutex_);
    if (!discovered_) return {};
    return {all_.begin(), all_.end()};
  }
  void markDiscovered() {
    std::lock_guard lock(mutex_);
    discovered_ = true;
  }
  const std::vector<std::shared_ptr<GattCharacteristic>>& all() const { return all_; }

 private:
  const std::string path_;
  const ble::Uuid uuid_;
  const std::vector<std::shared_ptr<GattCharacteristic>> all_;
  mutable std::mutex mutex_;
  bool discovered_ = false;
};

}  // namespace orvante::platform::bluez
