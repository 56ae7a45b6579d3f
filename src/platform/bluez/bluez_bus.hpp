#pragma once
// Names and types of the BlueZ D-Bus interfaces both Bluetooth backends
// use, and reading properties out of the variants BlueZ sends.

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

namespace orvante::platform::bluez {

inline const char* const kService = "org.bluez";
inline const char* const kAdapter = "org.bluez.Adapter1";
inline const char* const kDevice = "org.bluez.Device1";
inline const char* const kGattService = "org.bluez.GattService1";
inline const char* const kGattCharacteristic = "org.bluez.GattCharacteristic1";
inline const char* const kProfileManager = "org.bluez.ProfileManager1";
inline const char* const kProfile = "org.bluez.Profile1";
inline const char* const kProperties = "org.freedesktop.DBus.Properties";
inline const char* const kObjectManager = "org.freedesktop.DBus.ObjectManager";

// The Serial Port Profile, as BlueZ lists it in Device1.UUIDs.
inline const char* const kSerialPortUuid = "00001101-0000-1000-8000-00805f9b34fb";

using Properties = std::map<std::string, sdbus::Variant>;
using Interfaces = std::map<std::string, Properties>;
using ManagedObjects = std::map<sdbus::ObjectPath, Interfaces>;

// A property of the given type, or none when it is missing or of another type.
template <class T>
std::optional<T> property(const Properties& properties, const std::string& name) {
  auto found = properties.find(name);
  if (found == properties.end() || !found->second.containsValueOfType<T>()) return std::nullopt;
  return found->second.get<T>();
}

// The system bus, or null when there is none (no daemon, no socket). The
// address comes from DBUS_SYSTEM_BUS_ADDRESS when set.
std::unique_ptr<sdbus::IConnection> connectSystemBus();

// sdbus-c++ makes the bus behind every variant's message on first use and
// keeps it in a static. A backend calls this while it is made, so that
// static outlives it: a backend held in a static stops its bus loop at
// exit, and the loop may still be destroying variants then.
void makeVariantsOutliveThisBackend();

}  // namespace orvante::platform::bluez
