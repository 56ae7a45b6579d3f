#pragma once
// A BLE peripheral over BlueZ's Device1: its services come from the
// central's object tree, its reads, writes and notifications go through
// the central, which owns the bus.

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <orvante/platform/ble.hpp>

#include "../../transport/delegate_slot.hpp"
#include "gatt_objects.hpp"

namespace orvante::platform::bluez {

class Central;

class Peripheral final : public ble::Peripheral, public std::enable_shared_from_this<Peripheral> {
 public:
  Peripheral(std::weak_ptr<Central> central, std::string path, std::string address)
      : central_(std::move(central)), path_(std::move(path)), address_(std::move(address)) {}

  const std::string& path() const { return path_; }

  std::optional<std::string> name() const override;
  std::optional<std::string> identifier() const override { return address_; }
  ble::PeripheralState state() const override;
  std::vector<std::shared_ptr<ble::Service>> services() const override;
  void setDelegate(ble::PeripheralDelegate* delegate) override { delegate_.set(delegate); }
  void discoverServices() override;
  void discoverCharacteristics(const std::shared_ptr<ble::Service>& service) override;
  void readValue(const std::shared_ptr<ble::Characteristic>& characteristic) override;
  void writeValue(ByteView data, const std::shared_ptr<ble::Characteristic>& characteristic,
                  ble::WriteType type) override;
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<ble::Characteristic>& characteristic) override;
  std::size_t maximumWriteValueLength(ble::WriteType type) const override;

  // Runs f with the delegate, if any (on the central's queue).
  void deliver(
      std::function<void(ble::PeripheralDelegate&, const std::shared_ptr<ble::Peripheral>&)> f) {
    delegate_.deliver([&](ble::PeripheralDelegate& delegate) { f(delegate, shared_from_this()); });
  }

  std::shared_ptr<GattCharacteristic> characteristicAt(const std::string& path) const;
  bool notifying(const std::string& characteristicPath) const;

  // The central's view of the link, kept here under the peripheral's lock.
  void setName(std::optional<std::string> name);
  void setServices(std::vector<std::shared_ptr<GattService>> services);
  // Connecting: false when it is connected already.
  bool beginConnecting();
  // Connected: false when a disconnection came first.
  bool finishConnecting();
  // Disconnecting: false when not connected at all.
  bool beginDisconnecting();
  // Disconnected: the error to report (none for a link given up on
  // purpose), or nothing at all when it was disconnected already.
  std::optional<std::optional<ble::Error>> disconnected(std::optional<ble::Error> error);
  // Whether a services discovery waits for BlueZ to resolve them; set while
  // connected.
  bool wantServices(bool resolved);
  bool takeServicesWanted();

 private:
  const std::weak_ptr<Central> central_;
  const std::string path_;
  const std::string address_;
  mutable std::mutex mutex_;
  transport::DelegateSlot<ble::PeripheralDelegate> delegate_;
  std::optional<std::string> name_;
  ble::PeripheralState state_ = ble::PeripheralState::Disconnected;
  std::vector<std::shared_ptr<GattService>> services_;
  bool servicesWanted_ = false;
  std::set<std::string> notifying_;
};

}  // namespace orvante::platform::bluez
