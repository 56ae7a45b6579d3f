#include "object_tree.hpp"

#include <algorithm>

namespace orvante::platform::bluez {

void ObjectTree::merge(const ManagedObjects& objects) {
  for (const auto& [path, interfaces] : objects) {
    for (const auto& [name, properties] : interfaces) {
      auto& known = objects_[path][name];
      for (const auto& [key, value] : properties) known[key] = value;
    }
  }
}

TreeChange ObjectTree::interfacesAdded(const std::string& path, const Interfaces& interfaces) {
  for (const auto& [name, properties] : interfaces) objects_[path][name] = properties;
  TreeChange change;
  change.adapter = interfaces.count(kAdapter) > 0;
  if (interfaces.count(kDevice)) change.device = path;
  return change;
}

TreeChange ObjectTree::interfacesRemoved(const std::string& path,
                                         const std::vector<std::string>& names) {
  TreeChange change;
  auto object = objects_.find(path);
  if (object == objects_.end()) return change;
  for (const auto& name : names) object->second.erase(name);
  if (object->second.empty()) objects_.erase(object);
  const auto named = [&](const char* interface) {
    return std::find(names.begin(), names.end(), interface) != names.end();
  };
  change.adapter = named(kAdapter);
  if (named(kDevice)) {
    change.device = path;
    change.deviceRemoved = true;
  }
  return change;
}

TreeChange ObjectTree::propertiesChanged(const std::string& path, const std::string& interface,
                                         const Properties& changed,
                                         const std::vector<std::string>& invalidated) {
  auto& known = objects_[path][interface];
  for (const auto& [key, value] : changed) known[key] = value;
  for (const auto& key : invalidated) known.erase(key);
  TreeChange change;
  change.adapter = interface == kAdapter;
  if (interface == kDevice) change.device = path;
  if (interface == kGattCharacteristic && changed.count("Value")) change.value = path;
  return change;
}

ble::CentralState ObjectTree::radioState() const {
  for (const auto& [path, interfaces] : objects_) {
    auto adapter = interfaces.find(kAdapter);
    if (adapter == interfaces.end()) continue;
    return property<bool>(adapter->second, "Powered").value_or(false)
               ? ble::CentralState::PoweredOn
               : ble::CentralState::PoweredOff;
  }
  return ble::CentralState::Unsupported;
}

std::string ObjectTree::adapterPath() const {
  for (const auto& [path, interfaces] : objects_) {
    if (interfaces.count(kAdapter)) return path;
  }
  return {};
}

std::vector<std::string> ObjectTree::devicePaths() const {
  std::vector<std::string> paths;
  for (const auto& [path, interfaces] : objects_) {
    if (interfaces.count(kDevice)) paths.push_back(path);
  }
  return paths;
}

Properties ObjectTree::device(const std::string& path) const {
  auto object = objects_.find(path);
  if (object == objects_.end()) return {};
  auto device = object->second.find(kDevice);
  return device == object->second.end() ? Properties{} : device->second;
}

bool ObjectTree::servicesResolved(const std::string& devicePath) const {
  return property<bool>(device(devicePath), "ServicesResolved").value_or(false);
}

std::vector<ServiceEntry> ObjectTree::services(const std::string& devicePath) const {
  std::vector<ServiceEntry> services;
  for (const auto& [servicePath, interfaces] : objects_) {
    auto service = interfaces.find(kGattService);
    if (service == interfaces.end()) continue;
    if (property<sdbus::ObjectPath>(service->second, "Device").value_or(sdbus::ObjectPath{}) !=
        devicePath) {
      continue;
    }
    ServiceEntry entry{
        servicePath, ble::Uuid(property<std::string>(service->second, "UUID").value_or("")), {}};
    for (const auto& [path, others] : objects_) {
      auto characteristic = others.find(kGattCharacteristic);
      if (characteristic == others.end()) continue;
      const auto& properties = characteristic->second;
      if (property<sdbus::ObjectPath>(properties, "Service").value_or(sdbus::ObjectPath{}) !=
          servicePath) {
        continue;
      }
      // BlueZ caches the last value read; the manufacturer name is often there.
      std::optional<Bytes> value;
      if (properties.count("Value")) {
        value = property<std::vector<std::uint8_t>>(properties, "Value").value_or(Bytes{});
      }
      entry.characteristics.push_back(
          {path, ble::Uuid(property<std::string>(properties, "UUID").value_or("")),
           std::move(value)});
    }
    services.push_back(std::move(entry));
  }
  return services;
}

std::optional<std::uint16_t> ObjectTree::mtu(const std::string& devicePath) const {
  std::optional<std::uint16_t> largest;
  for (auto it = objects_.lower_bound(devicePath + "/"); it != objects_.end(); ++it) {
    if (it->first.rfind(devicePath + "/", 0) != 0) break;
    auto characteristic = it->second.find(kGattCharacteristic);
    if (characteristic == it->second.end()) continue;
    if (auto value = property<std::uint16_t>(characteristic->second, "MTU")) {
      largest = std::max(largest.value_or(0), *value);
    }
  }
  return largest;
}

}  // namespace orvante::platform::bluez
