#pragma once
// A stand-in for the BlueZ daemon on a private bus: it owns "org.bluez" and
// plays an adapter (/org/bluez/hci0) with BLE printers (device information
// and serial services), paired printers on the Serial Port Profile, and the
// failures a real daemon reports. Tests script it and read what clients did.
// Each D-Bus interface it plays has a file of its own (fake_bluez_*.cpp).

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <orvante/bytes.hpp>
#include <sdbus-c++/sdbus-c++.h>

#include "bus_loop.hpp"
#include <orvante/testing/printer_peer.hpp>

namespace orvante::testing {

class FakeBluez {
 public:
  struct Write {
    Bytes data;
    std::string type;  // the "type" option as sent: "request" or "command"
  };
  // Called on the fake's bus thread, after the write's reply, with each write to a printer's
  // write characteristic.
  using Responder = std::function<void(FakeBluez& bluez, const std::string& device, ByteView data)>;

  explicit FakeBluez(const std::string& busAddress);
  ~FakeBluez();
  FakeBluez(const FakeBluez&) = delete;
  FakeBluez& operator=(const FakeBluez&) = delete;

  // A BLE printer, known to BlueZ from the start or only once a discovery
  // starts; no name when it advertises none. Returns its object path.
  std::string addPrinter(const std::string& address, std::optional<std::string> name,
                         const std::string& manufacturer = "Orvante Labs",
                         bool knownAtStart = true);
  // A paired printer offering the Serial Port Profile, or, when paired is
  // false, a device seen but never paired.
  std::string addSerialPrinter(const std::string& address, const std::string& alias,
                               bool paired = true);

  // The radio; clients see Powered change and every link drop.
  void setPowered(bool powered);
  // The printer's side.
  void notify(const std::string& device, Bytes value);
  // Bytes waiting in the receive characteristic; a read takes them, as a
  // serial bridge's does.
  void setValue(const std::string& device, Bytes value);
  void dropConnection(const std::string& device);
  void removeDevice(const std::string& device);
  void setResponder(Responder responder);
  void setSerialResponder(orvante::testing::PrinterPeer::Responder responder);
  // The link's ATT MTU, which BlueZ tells on each characteristic of the
  // device (23, the smallest, until set).
  void setMtu(const std::string& device, std::uint16_t mtu);
  // Each acknowledged write ("request") is answered one connection interval
  // after the one before it was, as a radio link takes one such write per
  // interval; unacknowledged writes are not held up. Zero answers at once.
  void setConnectionInterval(std::chrono::microseconds interval);
  // The next calls of this method on the device fail with this D-Bus error.
  void failMethod(const std::string& device, const std::string& method, std::string errorName);

  // What clients did.
  std::vector<Write> writes(const std::string& device) const;
  bool notifying(const std::string& device) const;
  bool discovering() const;
  int connects(const std::string& device) const;
  int reads(const std::string& device) const;
  // The printer's end of the last serial connection handed over, or null.
  std::shared_ptr<orvante::testing::PrinterPeer> serialPeer() const;

 private:
  struct Device;
  using Properties = std::map<std::string, sdbus::Variant>;
  using Interfaces = std::map<std::string, Properties>;

  // Keeps the object; puts it on the bus now when visible.
  void start();
  // Runs the task on the bus thread, which alone touches the state below.
  void onLoop(const std::function<void()>& task) const;
  void exportObject(const std::string& path, Interfaces interfaces, bool visible);
  void publish(const std::string& path);
  void registerProfileManager();
  void registerAdapter(const std::string& path);
  void setProperty(const std::string& path, const std::string& interface,
                   const std::string& name, const sdbus::Variant& value);
  Device& device(const std::string& path);
  void throwIfFailing(const std::string& device, const std::string& method);
  std::string characteristicDevice(const std::string& path) const;
  void registerDevice(const std::string& path);
  void registerCharacteristic(const std::string& path);
  void connectProfile(const std::string& device);
  void answerWrite(std::shared_ptr<sdbus::Result<>> result, const std::string& device,
                   std::vector<std::uint8_t> data, bool acknowledged);

  // Owns the connection; every use of it happens on its thread.
  std::unique_ptr<testing::bluez::BusLoop> loop_;
  std::map<std::string, Interfaces> objects_;
  std::map<std::string, std::unique_ptr<sdbus::IObject>> exported_;
  std::unique_ptr<sdbus::IObject> manager_;
  std::map<std::string, std::unique_ptr<Device>> devices_;
  std::vector<std::string> laterDevices_;
  Responder responder_;
  orvante::testing::PrinterPeer::Responder serialResponder_;
  std::shared_ptr<orvante::testing::PrinterPeer> serialPeer_;
  std::string profileOwner_, profilePath_;
  bool discovering_ = false;
  std::unique_ptr<sdbus::IProxy> profileClient_;
  std::chrono::microseconds connectionInterval_{0};
  std::chrono::steady_clock::time_point lastAnswer_;
  // Runs tasks on the bus thread at a set time: the delayed write answers.
  class Timer;
  std::unique_ptr<Timer> timer_;
};

}  // namespace orvante::testing
