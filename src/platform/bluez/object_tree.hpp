#pragma once
// BlueZ's objects as a central keeps them: the object manager's listing,
// then every InterfacesAdded, InterfacesRemoved and PropertiesChanged
// merged in. Pure logic over the messages' contents, without a bus; the
// central asks it what the radio's state is, which devices there are and
// what services a device offers.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <orvante/platform/ble.hpp>

#include "bluez_bus.hpp"

namespace orvante::platform::bluez {

// What a change touched, for the central to report.
struct TreeChange {
  bool adapter = false;               // the radio's state may have changed
  std::optional<std::string> device;  // a device's path whose properties changed
  bool deviceRemoved = false;         // that device went away
  std::optional<std::string> value;   // a characteristic's path whose value changed
};

// A characteristic as the tree describes it.
struct CharacteristicEntry {
  std::string path;
  ble::Uuid uuid;
  std::optional<Bytes> value;  // BlueZ's cached value, when it has one
};

struct ServiceEntry {
  std::string path;
  ble::Uuid uuid;
  std::vector<CharacteristicEntry> characteristics;
};

class ObjectTree {
 public:
  // GetManagedObjects: the objects as they are now, merged over what is known.
  void merge(const ManagedObjects& objects);
  TreeChange interfacesAdded(const std::string& path, const Interfaces& interfaces);
  TreeChange interfacesRemoved(const std::string& path, const std::vector<std::string>& names);
  TreeChange propertiesChanged(const std::string& path, const std::string& interface,
                               const Properties& changed,
                               const std::vector<std::string>& invalidated);
  // BlueZ went away: nothing of it is left.
  void clear() { objects_.clear(); }

  // PoweredOn or PoweredOff by the first adapter (a radio blocked by rfkill
  // reads as off); Unsupported without one.
  ble::CentralState radioState() const;
  std::string adapterPath() const;
  std::vector<std::string> devicePaths() const;
  // The device's properties; empty for an unknown path.
  Properties device(const std::string& path) const;
  bool servicesResolved(const std::string& devicePath) const;
  std::vector<ServiceEntry> services(const std::string& devicePath) const;
  // The largest MTU any of the device's characteristics reports (they share
  // one link); none when BlueZ does not tell (before 5.62).
  std::optional<std::uint16_t> mtu(const std::string& devicePath) const;

 private:
  std::map<std::string, Interfaces> objects_;
};

}  // namespace orvante::platform::bluez
