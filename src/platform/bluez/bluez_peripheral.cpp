#include "bluez_peripheral.hpp"

#include <algorithm>

#include "bluez_central.hpp"

namespace orvante::platform::bluez {

std::optional<std::string> Peripheral::name() const {
  std::lock_guard lock(mutex_);
  return name_;
}

ble::PeripheralState Peripheral::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

std::vector<std::shared_ptr<ble::Service>> Peripheral::services() const {
  std::lock_guard lock(mutex_);
  return {services_.begin(), services_.end()};
}

void Peripheral::discoverServices() {
  if (auto central = central_.lock()) central->discoverServices(shared_from_this());
}

void Peripheral::discoverCharacteristics(const std::shared_ptr<ble::Service>& service) {
  auto central = central_.lock();
  if (!central) return;
  // BlueZ resolved the characteristics with the services already.
  central->post(shared_from_this(), [service](auto& delegate, const auto& self) {
    if (auto gatt = std::dynamic_pointer_cast<GattService>(service)) gatt->markDiscovered();
    delegate.peripheral(self, service, nullptr);
  });
}

void Peripheral::readValue(const std::shared_ptr<ble::Characteristic>& characteristic) {
  auto central = central_.lock();
  auto gatt = std::dynamic_pointer_cast<GattCharacteristic>(characteristic);
  if (central && gatt) central->readValue(shared_from_this(), gatt);
}

void Peripheral::writeValue(ByteView data,
                            const std::shared_ptr<ble::Characteristic>& characteristic,
                            ble::WriteType type) {
  auto central = central_.lock();
  auto gatt = std::dynamic_pointer_cast<GattCharacteristic>(characteristic);
  if (central && gatt) {
    central->writeValue(shared_from_this(), gatt, Bytes(data.begin(), data.end()), type);
  }
}

void Peripheral::setNotifyValue(bool enabled,
                                const std::shared_ptr<ble::Characteristic>& characteristic) {
  auto central = central_.lock();
  auto gatt = std::dynamic_pointer_cast<GattCharacteristic>(characteristic);
  if (!central || !gatt) return;
  {
    std::lock_guard lock(mutex_);
    if (enabled) {
      notifying_.insert(gatt->path());
    } else {
      notifying_.erase(gatt->path());
    }
  }
  central->setNotify(gatt, enabled);
}

std::size_t Peripheral::maximumWriteValueLength(ble::WriteType) const {
  // BlueZ 5.62 and later tell the link's ATT MTU on each characteristic;
  // older ones do not, and the smallest MTU is assumed.
  constexpr std::size_t kAttHeader = 3, kLongestValue = 512;
  const auto central = central_.lock();
  const auto mtu = central ? central->mtu(path_) : std::nullopt;
  if (!mtu || *mtu < kSmallestWriteValueLength + kAttHeader) return kSmallestWriteValueLength;
  return std::min<std::size_t>(*mtu - kAttHeader, kLongestValue);
}

std::shared_ptr<GattCharacteristic> Peripheral::characteristicAt(const std::string& path) const {
  std::lock_guard lock(mutex_);
  for (const auto& service : services_) {
    for (const auto& characteristic : service->all()) {
      if (characteristic->path() == path) return characteristic;
    }
  }
  return nullptr;
}

bool Peripheral::notifying(const std::string& characteristicPath) const {
  std::lock_guard lock(mutex_);
  return notifying_.count(characteristicPath) > 0;
}

void Peripheral::setName(std::optional<std::string> name) {
  std::lock_guard lock(mutex_);
  name_ = std::move(name);
}

void Peripheral::setServices(std::vector<std::shared_ptr<GattService>> services) {
  std::lock_guard lock(mutex_);
  servicesWanted_ = false;
  services_ = std::move(services);
}

bool Peripheral::beginConnecting() {
  std::lock_guard lock(mutex_);
  if (state_ == ble::PeripheralState::Connected) return false;
  state_ = ble::PeripheralState::Connecting;
  return true;
}

bool Peripheral::finishConnecting() {
  std::lock_guard lock(mutex_);
  if (state_ != ble::PeripheralState::Connecting) return false;
  state_ = ble::PeripheralState::Connected;
  return true;
}

bool Peripheral::beginDisconnecting() {
  std::lock_guard lock(mutex_);
  if (state_ == ble::PeripheralState::Disconnected) return false;
  state_ = ble::PeripheralState::Disconnecting;
  return true;
}

// A link's end is reported once: a cancelled link without an error, a lost
// one with the error given or a generic one.
std::optional<std::optional<ble::Error>> Peripheral::disconnected(std::optional<ble::Error> error) {
  std::lock_guard lock(mutex_);
  if (state_ == ble::PeripheralState::Disconnected) return std::nullopt;
  if (state_ == ble::PeripheralState::Disconnecting) {
    error.reset();
  } else if (!error) {
    error = ble::Error{7, "The peripheral disconnected."};
  }
  state_ = ble::PeripheralState::Disconnected;
  servicesWanted_ = false;
  notifying_.clear();
  return error;
}

bool Peripheral::wantServices(bool resolved) {
  std::lock_guard lock(mutex_);
  const bool connected = state_ == ble::PeripheralState::Connected;
  if (connected) servicesWanted_ = !resolved;
  return connected;
}

bool Peripheral::takeServicesWanted() {
  std::lock_guard lock(mutex_);
  return std::exchange(servicesWanted_, false);
}

}  // namespace orvante::platform::bluez
