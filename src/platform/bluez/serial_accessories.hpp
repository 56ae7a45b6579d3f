#pragma once
// Printers paired over the Bluetooth Serial Port Profile as accessories,
// through BlueZ on the shared system bus. A session is opened the BlueZ 5
// way: a client profile registered with ProfileManager1,
// Device1.ConnectProfile, and the RFCOMM socket BlueZ hands to our
// Profile1.NewConnection.

#include <map>
#include <memory>
#include <mutex>

#include <orvante/platform/accessory.hpp>

namespace orvante::platform::bluez {

class SerialProfile;

class SerialAccessories final : public AccessoryManager {
 public:
  SerialAccessories();
  ~SerialAccessories() override;

  std::vector<std::shared_ptr<Accessory>> connectedAccessories() override;
  std::shared_ptr<AccessorySession> openSession(const std::shared_ptr<Accessory>& accessory,
                                                const std::string& protocol) override;
  // The RFCOMM socket of a paired printer this manager listed, connected;
  // -1 when BlueZ refuses or does not hand it over in time.
  int connectSocket(const std::shared_ptr<Accessory>& accessory);
  void showBluetoothAccessoryPicker() override { showAccessoryPicker(); }

 private:
  // The bus's profile, taken on first use; null without a bus.
  std::shared_ptr<SerialProfile> profile();

  std::mutex mutex_;
  std::shared_ptr<SerialProfile> profile_;
};

}  // namespace orvante::platform::bluez
