#include "fake_bluez.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace orvante::testing {
namespace {

const char* const kAdapter = "org.bluez.Adapter1";
const char* const kDevice = "org.bluez.Device1";
const char* const kGattService = "org.bluez.GattService1";
const char* const kGattCharacteristic = "org.bluez.GattCharacteristic1";
const char* const kProfileManager = "org.bluez.ProfileManager1";
const char* const kProperties = "org.freedesktop.DBus.Properties";
const char* const kObjectManager = "org.freedesktop.DBus.ObjectManager";
const char* const kAdapterPath = "/org/bluez/hci0";

const char* const kSerialPort = "00001101-0000-1000-8000-00805f9b34fb";
const char* const kDeviceInformation = "0000180a-0000-1000-8000-00805f9b34fb";
const char* const kManufacturerName = "00002a29-0000-1000-8000-00805f9b34fb";
const char* const kSerialService = "49535343-fe7d-4ae5-8fa9-9fafd205e455";
const char* const kReceive = "49535343-1e4d-4bd9-ba61-23c647249616";
const char* const kWrite = "49535343-8841-43f4-a8d4-ecbe34729bb3";

std::string devicePath(std::string address) {
  std::replace(address.begin(), address.end(), ':', '_');
  return std::string(kAdapterPath) + "/dev_" + address;
}

sdbus::Variant text(const std::string& value) { return sdbus::Variant(value); }

}  // namespace

struct FakeBluez::Device {
  std::vector<Write> writes;
  bool notifying = false;
  int connects = 0;
  std::map<std::string, std::string> failing;
};

FakeBluez::FakeBluez(const std::string& busAddress)
    : bus_(sdbus::createSessionBusConnectionWithAddress(busAddress)),
      worker_(std::make_unique<transport::SerialQueue>("fake bluez")) {
  bus_->requestName("org.bluez");

  root_ = sdbus::createObject(*bus_, "/");
  root_->registerMethod("GetManagedObjects").onInterface(kObjectManager).implementedAs([this] {
    std::map<sdbus::ObjectPath, Interfaces> reply;
    for (auto& [path, interfaces] : managedObjects()) reply[sdbus::ObjectPath(path)] = interfaces;
    return reply;
  });
  root_->finishRegistration();

  manager_ = sdbus::createObject(*bus_, "/org/bluez");
  manager_->registerMethod("RegisterProfile")
      .onInterface(kProfileManager)
      .implementedAs([this](const sdbus::ObjectPath& path, const std::string&, const Properties&) {
        std::lock_guard lock(mutex_);
        if (!profileOwner_.empty()) {
          throw sdbus::Error("org.bluez.Error.AlreadyExists", "Already Exists");
        }
        profileOwner_ = manager_->getCurrentlyProcessedMessage()->getSender();
        profilePath_ = path;
      });
  manager_->registerMethod("UnregisterProfile")
      .onInterface(kProfileManager)
      .implementedAs([this](const sdbus::ObjectPath&) {
        std::lock_guard lock(mutex_);
        profileOwner_.clear();
      });
  manager_->finishRegistration();

  exportObject(kAdapterPath,
               {{kAdapter,
                 {{"Address", text("00:1A:7D:DA:71:13")},
                  {"Powered", sdbus::Variant(true)},
                  {"Discovering", sdbus::Variant(false)}}}},
               false);
  bus_->enterEventLoopAsync();
}

FakeBluez::~FakeBluez() {
  worker_.reset();
  bus_->leaveEventLoop();
}

std::map<std::string, FakeBluez::Interfaces> FakeBluez::managedObjects() const {
  std::lock_guard lock(mutex_);
  return objects_;
}

FakeBluez::Device& FakeBluez::device(const std::string& path) {
  std::lock_guard lock(mutex_);
  auto& slot = devices_[path];
  if (!slot) slot = std::make_unique<Device>();
  return *slot;
}

void FakeBluez::throwIfFailing(const std::string& path, const std::string& method) {
  std::lock_guard lock(mutex_);
  if (!objects_.count(path)) {
    throw sdbus::Error("org.freedesktop.DBus.Error.UnknownObject", "Unknown object " + path);
  }
  auto& failing = device(path).failing;
  if (auto found = failing.find(method); found != failing.end()) {
    throw sdbus::Error(found->second, method + " failed");
  }
}

// Characteristics sit two levels below their device.
std::string FakeBluez::characteristicDevice(const std::string& path) const {
  auto service = path.substr(0, path.rfind('/'));
  return service.substr(0, service.rfind('/'));
}

void FakeBluez::exportObject(const std::string& path, Interfaces interfaces, bool announce) {
  std::lock_guard lock(mutex_);
  objects_[path] = interfaces;
  if (!exported_.count(path)) {
    exported_[path] = sdbus::createObject(*bus_, path);
    if (interfaces.count(kAdapter)) {
      auto& adapter = *exported_[path];
      adapter.registerMethod("StartDiscovery").onInterface(kAdapter).implementedAs([this] {
        std::lock_guard lock(mutex_);
        if (discovering_) throw sdbus::Error("org.bluez.Error.InProgress", "Operation already in progress");
        discovering_ = true;
        setProperty(kAdapterPath, kAdapter, "Discovering", sdbus::Variant(true));
        // Printers in range show up once the radio listens.
        worker_->post([this] {
          std::lock_guard lock(mutex_);
          for (const auto& later : laterDevices_) {
            auto waiting = objects_.find("waiting:" + later);
            if (waiting == objects_.end()) continue;
            auto interfaces = waiting->second;
            objects_.erase(waiting);
            objects_[later] = interfaces;
            root_->emitSignal("InterfacesAdded")
                .onInterface(kObjectManager)
                .withArguments(sdbus::ObjectPath(later), interfaces);
          }
          laterDevices_.clear();
        });
      });
      adapter.registerMethod("StopDiscovery").onInterface(kAdapter).implementedAs([this] {
        std::lock_guard lock(mutex_);
        if (!discovering_) throw sdbus::Error("org.bluez.Error.Failed", "No discovery started");
        discovering_ = false;
        setProperty(kAdapterPath, kAdapter, "Discovering", sdbus::Variant(false));
      });
    }
    if (interfaces.count(kDevice)) registerDevice(path);
    if (interfaces.count(kGattCharacteristic)) registerCharacteristic(path);
    exported_[path]->finishRegistration();
  }
  if (announce) {
    root_->emitSignal("InterfacesAdded")
        .onInterface(kObjectManager)
        .withArguments(sdbus::ObjectPath(path), interfaces);
  }
}

void FakeBluez::registerDevice(const std::string& path) {
  auto& object = *exported_[path];
  object.registerMethod("Connect").onInterface(kDevice).implementedAs([this, path] {
    throwIfFailing(path, "Connect");
    std::lock_guard lock(mutex_);
    ++device(path).connects;
    setProperty(path, kDevice, "Connected", sdbus::Variant(true));
    // BlueZ resolves the services after the link is up.
    worker_->post([this, path] {
      std::lock_guard lock(mutex_);
      if (objects_.count(path)) setProperty(path, kDevice, "ServicesResolved", sdbus::Variant(true));
    });
  });
  object.registerMethod("Disconnect").onInterface(kDevice).implementedAs([this, path] {
    throwIfFailing(path, "Disconnect");
    dropConnection(path);
  });
  object.registerMethod("ConnectProfile")
      .onInterface(kDevice)
      .implementedAs([this, path](const std::string& uuid) {
        throwIfFailing(path, "ConnectProfile");
        if (uuid != kSerialPort) throw sdbus::Error("org.bluez.Error.NotAvailable", "Not available");
        connectProfile(path);
      });
}

void FakeBluez::registerCharacteristic(const std::string& path) {
  auto& object = *exported_[path];
  object.registerMethod("ReadValue")
      .onInterface(kGattCharacteristic)
      .implementedAs([this, path](const Properties&) {
        const auto owner = characteristicDevice(path);
        throwIfFailing(owner, "ReadValue");
        std::lock_guard lock(mutex_);
        auto& properties = objects_[path][kGattCharacteristic];
        if (!properties.count("Value")) return std::vector<std::uint8_t>{};
        return properties["Value"].get<std::vector<std::uint8_t>>();
      });
  object.registerMethod("WriteValue")
      .onInterface(kGattCharacteristic)
      .implementedAs([this, path](const std::vector<std::uint8_t>& data, const Properties& options) {
        const auto owner = characteristicDevice(path);
        throwIfFailing(owner, "WriteValue");
        Responder responder;
        {
          std::lock_guard lock(mutex_);
          auto& state = objects_[owner][kDevice];
          if (!state["Connected"].get<bool>()) {
            throw sdbus::Error("org.bluez.Error.NotConnected", "Not Connected");
          }
          auto type = options.find("type");
          device(owner).writes.push_back(
              {data, type == options.end() ? "" : type->second.get<std::string>()});
          responder = responder_;
        }
        if (responder) {
          worker_->post([this, responder, owner, data] { responder(*this, owner, data); });
        }
      });
  object.registerMethod("StartNotify").onInterface(kGattCharacteristic).implementedAs([this, path] {
    const auto owner = characteristicDevice(path);
    throwIfFailing(owner, "StartNotify");
    std::lock_guard lock(mutex_);
    device(owner).notifying = true;
  });
  object.registerMethod("StopNotify").onInterface(kGattCharacteristic).implementedAs([this, path] {
    std::lock_guard lock(mutex_);
    device(characteristicDevice(path)).notifying = false;
  });
}

void FakeBluez::connectProfile(const std::string& path) {
  std::string owner, profile;
  fakes::PrinterPeer::Responder responder;
  {
    std::lock_guard lock(mutex_);
    owner = profileOwner_;
    profile = profilePath_;
    responder = serialResponder_;
  }
  if (owner.empty()) throw sdbus::Error("org.bluez.Error.NotAvailable", "No profile registered");
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    throw sdbus::Error("org.bluez.Error.Failed", "No socket");
  }
  auto peer = std::make_shared<fakes::PrinterPeer>(ends[1], std::move(responder));
  {
    std::lock_guard lock(mutex_);
    serialPeer_ = peer;
  }
  // As BlueZ does: the socket reaches the profile before ConnectProfile returns.
  sdbus::UnixFd handed(ends[0], sdbus::adopt_fd);
  auto client = sdbus::createProxy(*bus_, owner, profile);
  client->callMethod("NewConnection")
      .onInterface("org.bluez.Profile1")
      .withTimeout(std::chrono::seconds(10))
      .withArguments(sdbus::ObjectPath(path), handed, Properties{});
}

void FakeBluez::setProperty(const std::string& path, const std::string& interface,
                            const std::string& name, const sdbus::Variant& value) {
  std::lock_guard lock(mutex_);
  objects_[path][interface][name] = value;
  exported_.at(path)->emitSignal("PropertiesChanged")
      .onInterface(kProperties)
      .withArguments(interface, Properties{{name, value}}, std::vector<std::string>{});
}

std::string FakeBluez::addPrinter(const std::string& address, std::optional<std::string> name,
                                  const std::string& manufacturer, bool knownAtStart) {
  const auto path = devicePath(address);
  Properties properties{{"Address", text(address)},
                        {"Adapter", sdbus::Variant(sdbus::ObjectPath(kAdapterPath))},
                        {"Alias", text(name.value_or(address))},
                        {"Paired", sdbus::Variant(false)},
                        {"Connected", sdbus::Variant(false)},
                        {"ServicesResolved", sdbus::Variant(false)},
                        {"RSSI", sdbus::Variant(std::int16_t{-58})},
                        {"UUIDs", sdbus::Variant(std::vector<std::string>{kSerialService})}};
  if (name) properties["Name"] = text(*name);
  std::lock_guard lock(mutex_);
  if (knownAtStart) {
    exportObject(path, {{kDevice, properties}}, true);
  } else {
    // Exported now, listed only once a discovery starts.
    exportObject(path, {{kDevice, properties}}, false);
    objects_["waiting:" + path] = objects_[path];
    objects_.erase(path);
    laterDevices_.push_back(path);
  }
  const auto info = path + "/service0001";
  const auto serial = path + "/service0010";
  const auto service = [&](const char* uuid) {
    return Interfaces{{kGattService,
                       {{"UUID", text(uuid)},
                        {"Device", sdbus::Variant(sdbus::ObjectPath(path))},
                        {"Primary", sdbus::Variant(true)}}}};
  };
  const auto characteristic = [&](const std::string& owner, const char* uuid,
                                  std::vector<std::string> flags) {
    return Interfaces{{kGattCharacteristic,
                       {{"UUID", text(uuid)},
                        {"Service", sdbus::Variant(sdbus::ObjectPath(owner))},
                        {"Flags", sdbus::Variant(flags)}}}};
  };
  exportObject(info, service(kDeviceInformation), knownAtStart);
  auto maker = characteristic(info, kManufacturerName, {"read"});
  // BlueZ keeps the last value read; the printer's maker was read before.
  maker[kGattCharacteristic]["Value"] =
      sdbus::Variant(std::vector<std::uint8_t>(manufacturer.begin(), manufacturer.end()));
  exportObject(info + "/char0002", maker, knownAtStart);
  exportObject(serial, service(kSerialService), knownAtStart);
  exportObject(serial + "/char0011", characteristic(serial, kReceive, {"read", "notify"}),
               knownAtStart);
  exportObject(serial + "/char0014",
               characteristic(serial, kWrite, {"write", "write-without-response"}), knownAtStart);
  return path;
}

std::string FakeBluez::addSerialPrinter(const std::string& address, const std::string& alias,
                                        bool paired) {
  const auto path = devicePath(address);
  exportObject(path,
               {{kDevice,
                 {{"Address", text(address)},
                  {"Adapter", sdbus::Variant(sdbus::ObjectPath(kAdapterPath))},
                  {"Name", text(alias)},
                  {"Alias", text(alias)},
                  {"Paired", sdbus::Variant(paired)},
                  {"Connected", sdbus::Variant(false)},
                  {"UUIDs", sdbus::Variant(std::vector<std::string>{
                                "00001200-0000-1000-8000-00805f9b34fb", kSerialPort})}}}},
               true);
  return path;
}

void FakeBluez::setPowered(bool powered) {
  std::lock_guard lock(mutex_);
  if (!powered) {
    for (const auto& [path, interfaces] : objects_) {
      if (interfaces.count(kDevice) && path.rfind("waiting:", 0) != 0) dropConnection(path);
    }
  }
  setProperty(kAdapterPath, kAdapter, "Powered", sdbus::Variant(powered));
}

void FakeBluez::notify(const std::string& path, Bytes value) {
  std::lock_guard lock(mutex_);
  if (!device(path).notifying) return;
  setProperty(path + "/service0010/char0011", kGattCharacteristic, "Value", sdbus::Variant(value));
}

void FakeBluez::dropConnection(const std::string& path) {
  std::lock_guard lock(mutex_);
  auto& state = objects_[path][kDevice];
  if (!state.count("Connected") || !state["Connected"].get<bool>()) return;
  device(path).notifying = false;
  setProperty(path, kDevice, "ServicesResolved", sdbus::Variant(false));
  setProperty(path, kDevice, "Connected", sdbus::Variant(false));
}

void FakeBluez::removeDevice(const std::string& path) {
  std::lock_guard lock(mutex_);
  for (auto it = objects_.begin(); it != objects_.end();) {
    if (it->first == path || it->first.rfind(path + "/", 0) == 0) {
      std::vector<std::string> names;
      for (const auto& [name, properties] : it->second) names.push_back(name);
      root_->emitSignal("InterfacesRemoved")
          .onInterface(kObjectManager)
          .withArguments(sdbus::ObjectPath(it->first), names);
      it = objects_.erase(it);
    } else {
      ++it;
    }
  }
}

void FakeBluez::setResponder(Responder responder) {
  std::lock_guard lock(mutex_);
  responder_ = std::move(responder);
}

void FakeBluez::setSerialResponder(fakes::PrinterPeer::Responder responder) {
  std::lock_guard lock(mutex_);
  serialResponder_ = std::move(responder);
}

void FakeBluez::failMethod(const std::string& path, const std::string& method,
                           std::string errorName) {
  std::lock_guard lock(mutex_);
  device(path).failing[method] = std::move(errorName);
}

std::vector<FakeBluez::Write> FakeBluez::writes(const std::string& path) const {
  std::lock_guard lock(mutex_);
  auto found = devices_.find(path);
  return found == devices_.end() ? std::vector<Write>{} : found->second->writes;
}

bool FakeBluez::notifying(const std::string& path) const {
  std::lock_guard lock(mutex_);
  auto found = devices_.find(path);
  return found != devices_.end() && found->second->notifying;
}

bool FakeBluez::discovering() const {
  std::lock_guard lock(mutex_);
  return discovering_;
}

int FakeBluez::connects(const std::string& path) const {
  std::lock_guard lock(mutex_);
  auto found = devices_.find(path);
  return found == devices_.end() ? 0 : found->second->connects;
}

std::shared_ptr<fakes::PrinterPeer> FakeBluez::serialPeer() const {
  std::lock_guard lock(mutex_);
  return serialPeer_;
}

}  // namespace orvante::testing
