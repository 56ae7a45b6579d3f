#pragma once
// What the system offers until the Bluetooth backends are in place: no
// connected accessories, and a BLE central whose radio is unsupported.

#include <orvante/platform/accessory.hpp>
#include <orvante/platform/ble.hpp>

namespace orvante::transport {

class NoAccessories final : public AccessoryManager {
 public:
  std::vector<std::shared_ptr<Accessory>> connectedAccessories() override { return {}; }
  std::shared_ptr<AccessorySession> openSession(const std::shared_ptr<Accessory>&,
                                                const std::string&) override {
    return nullptr;
  }
  void showBluetoothAccessoryPicker() override { showAccessoryPicker(); }
};

class NoBleAdapter final : public ble::CentralFactory {
 public:
  std::shared_ptr<ble::Central> makeCentral(ble::CentralDelegate& delegate,
                                            const std::string& queueName) override;
};

}  // namespace orvante::transport
