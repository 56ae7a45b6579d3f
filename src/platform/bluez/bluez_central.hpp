#pragma once
// The BLE central over BlueZ: Adapter1 for the radio's state and scanning,
// Device1 for peripherals, GattService1 and GattCharacteristic1 for their
// services, reads, writes and notifications. It listens to BlueZ's signals
// on the shared bus (on the event loop's thread), keeps BlueZ's objects in
// an ObjectTree, and delivers every callback on its serial queue.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <orvante/platform/ble.hpp>

#include "../../transport/delegate_slot.hpp"
#include "../../transport/serial_queue.hpp"
#include "bluez_peripheral.hpp"
#include "object_tree.hpp"
#include "shared_bus.hpp"
#include "write_throttle.hpp"

namespace orvante::platform::bluez {

class Central final : public ble::Central, public std::enable_shared_from_this<Central> {
 public:
  Central(ble::CentralDelegate& delegate, const std::string& queueName,
          std::shared_ptr<SharedBus> bus);
  ~Central() override;

  // Watches BlueZ's signals and lists its objects; waits (a while) for the
  // first state, so it is known when the central is handed out.
  void start();

  ble::CentralState state() const override;
  void scanForPeripherals() override;
  void stopScan() override;
  void connect(const std::shared_ptr<ble::Peripheral>& peripheral) override;
  void cancelPeripheralConnection(const std::shared_ptr<ble::Peripheral>& peripheral) override;
  void setDelegate(ble::CentralDelegate* delegate) override { delegate_.set(delegate); }

  // The peripheral's operations, which need the bus and the object tree.
  void discoverServices(const std::shared_ptr<Peripheral>& peripheral);
  void readValue(const std::shared_ptr<Peripheral>& peripheral,
                 const std::shared_ptr<GattCharacteristic>& characteristic);
  void writeValue(const std::shared_ptr<Peripheral>& peripheral,
                  const std::shared_ptr<GattCharacteristic>& characteristic, Bytes data,
                  ble::WriteType type);
  void setNotify(const std::shared_ptr<GattCharacteristic>& characteristic, bool enabled);
  std::optional<std::uint16_t> mtu(const std::string& devicePath) const;

  // Callbacks, through the serial queue.
  void post(std::function<void(ble::CentralDelegate&)> f);
  void post(
      const std::shared_ptr<Peripheral>& peripheral,
      std::function<void(ble::PeripheralDelegate&, const std::shared_ptr<ble::Peripheral>&)> f);

 private:
  struct Write {
    std::string path;
    Bytes data;
    Properties options;
    std::function<void(const sdbus::Error*)> done;
  };

  sdbus::IProxy& proxy(const std::string& path);
  std::shared_ptr<Peripheral> peripheralLocked(const std::string& path);
  std::vector<std::shared_ptr<GattService>> servicesLocked(const std::string& devicePath) const;
  void reportDiscoveryLocked(const std::string& path);
  void reportStateLocked();
  void disconnected(const std::shared_ptr<Peripheral>& peripheral, std::optional<ble::Error> error);
  void disconnectLater(const std::shared_ptr<Peripheral>& peripheral,
                       std::optional<ble::Error> error);
  void servicesResolved(const std::shared_ptr<Peripheral>& peripheral);
  void sendWrite(Write write);

  // BlueZ's signals and replies, on the bus's thread.
  void onPropertiesChanged(sdbus::Message& message);
  void onInterfacesAdded(sdbus::Message& message);
  void onInterfacesRemoved(sdbus::Message& message);
  void onOwnerChanged(sdbus::Message& message);
  void listObjects(std::function<void()> then);
  void notified(const std::string& characteristicPath, const Bytes& value);

  const std::shared_ptr<SharedBus> bus_;
  mutable std::mutex mutex_;  // the tree, the scan and the peripherals
  transport::DelegateSlot<ble::CentralDelegate> delegate_;
  ObjectTree tree_;
  std::optional<ble::CentralState> reported_;
  bool scanning_ = false;
  // What this scan reported of each device: reported again only when its
  // name changes, as a central without duplicates does.
  std::map<std::string, std::optional<std::string>> reportedNames_;
  std::map<std::string, std::shared_ptr<Peripheral>> peripherals_;
  // On the bus's thread: the signal matches and the proxies (a proxy's
  // pending calls end with it), all released there before the central goes.
  std::vector<sdbus::Slot> matches_;
  std::map<std::string, std::unique_ptr<sdbus::IProxy>> proxies_;
  WriteThrottle<Write> writes_{32};
  transport::SerialQueue queue_;
};

}  // namespace orvante::platform::bluez
