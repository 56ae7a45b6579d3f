#pragma once
// Printers paired over the Bluetooth Serial Port Profile as accessories,
// through BlueZ on the system bus. A session is opened the BlueZ 5 way: a
// client profile registered with ProfileManager1, Device1.ConnectProfile,
// and the RFCOMM socket BlueZ hands to our Profile1.NewConnection.

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>

#include <orvante/platform/accessory.hpp>

namespace sdbus {
class IObject;
class IProxy;
}  // namespace sdbus

namespace orvante::platform::bluez {

class BusLoop;

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
  // The bus with our profile on it, made on first use; null without a bus.
  BusLoop* loop();
  bool registerProfile();
  void newConnection(const std::string& device, int fd);
  // On the loop's thread.
  sdbus::IProxy& proxy(const std::string& path);

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::unique_ptr<BusLoop> loop_;
  std::unique_ptr<sdbus::IObject> profile_;
  std::map<std::string, std::unique_ptr<sdbus::IProxy>> proxies_;
  bool triedBus_ = false;
  bool registered_ = false;
  // Sockets BlueZ handed over, by device path, not yet taken by a session.
  std::map<std::string, int> sockets_;
};

}  // namespace orvante::platform::bluez
