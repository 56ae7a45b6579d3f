#pragma once
// The BLE central over BlueZ on the system bus: Adapter1 for the radio's
// state and scanning, Device1 for peripherals, GattService1 and
// GattCharacteristic1 for their services, reads, writes and notifications.

#include <orvante/platform/ble.hpp>

namespace orvante::platform::bluez {

class BluezCentralFactory final : public ble::CentralFactory {
 public:
  BluezCentralFactory();
  // A central over BlueZ; with no system bus, one whose radio is unsupported.
  std::shared_ptr<ble::Central> makeCentral(ble::CentralDelegate& delegate,
                                            const std::string& queueName) override;
};

}  // namespace orvante::platform::bluez
