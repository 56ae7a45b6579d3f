#include "bluez_central.hpp"

#include <algorithm>
#include <chrono>
#include <future>

#include "../../transport/unavailable_services.hpp"
#include "central.hpp"

namespace orvante::platform::bluez {
namespace {

using namespace std::chrono_literals;

// BlueZ gives up connecting on its own well before this; the limit only
// guards against a daemon that never answers.
constexpr auto kConnectLimit = 60s;
constexpr auto kCallLimit = 30s;
constexpr auto kListLimit = 5s;

// The codes a central reports for the failures BlueZ names.
ble::Error errorFrom(const sdbus::Error& error) {
  const std::string& name = error.getName();
  std::int64_t code = 0;
  if (name == "org.bluez.Error.NotConnected") code = 3;
  if (name == "org.freedesktop.DBus.Error.NoReply") code = 6;
  if (name == "org.freedesktop.DBus.Error.UnknownObject" ||
      name == "org.freedesktop.DBus.Error.UnknownMethod") {
    code = 7;
  }
  return {code, error.getMessage().empty() ? name : error.getMessage()};
}

const ble::Error kLostConnection{7, "The peripheral disconnected."};

}  // namespace

Central::Central(ble::CentralDelegate& delegate, const std::string& queueName,
                 std::shared_ptr<SharedBus> bus)
    : bus_(std::move(bus)), delegate_(&delegate), queue_(queueName) {}

Central::~Central() {
  // Calls made last (a scan's stop, a disconnection) have been sent, as
  // they were posted before this; the matches and proxies go on the bus's
  // thread, after which no handler of this central runs.
  bus_->run([this] {
    matches_.clear();
    proxies_.clear();
  });
}

void Central::start() {
  auto listed = std::make_shared<std::promise<void>>();
  bus_->post([this, listed] {
    auto& bus = bus_->connection();
    // Signals are watched before the objects are listed, so no change falls
    // between the two.
    matches_.push_back(bus.addMatch(
        "type='signal',interface='org.freedesktop.DBus.Properties',member='PropertiesChanged',"
        "path_namespace='/org/bluez'",
        [this](sdbus::Message& m) { onPropertiesChanged(m); }));
    matches_.push_back(
        bus.addMatch("type='signal',interface='org.freedesktop.DBus.ObjectManager',path='/'",
                     [this](sdbus::Message& m) {
                       if (m.getMemberName() == "InterfacesAdded") onInterfacesAdded(m);
                       if (m.getMemberName() == "InterfacesRemoved") onInterfacesRemoved(m);
                     }));
    matches_.push_back(bus.addMatch(
        "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.bluez'",
        [this](sdbus::Message& m) { onOwnerChanged(m); }));
    listObjects([listed] { listed->set_value(); });
  });
  // The first state is known before the central is handed out, unless
  // BlueZ is too slow to answer; then it follows with its callback.
  listed->get_future().wait_for(kListLimit);
}

// On the bus's thread.
void Central::listObjects(std::function<void()> then) {
  proxy("/")
      .callMethodAsync("GetManagedObjects")
      .onInterface(kObjectManager)
      .withTimeout(kCallLimit)
      .uponReplyInvoke([this, then](const sdbus::Error* error, ManagedObjects objects) {
        {
          std::lock_guard lock(mutex_);
          if (!error) tree_.merge(objects);
          reportStateLocked();
        }
        if (then) then();
      });
}

ble::CentralState Central::state() const {
  std::lock_guard lock(mutex_);
  return tree_.radioState();
}

void Central::reportStateLocked() {
  const auto now = tree_.radioState();
  if (reported_ == now) return;
  reported_ = now;
  post([this](ble::CentralDelegate& delegate) { delegate.centralManagerDidUpdateState(*this); });
  if (now == ble::CentralState::PoweredOn) return;
  // Without a powered radio no link survives.
  for (const auto& [path, peripheral] : peripherals_) {
    if (peripheral->state() != ble::PeripheralState::Disconnected) {
      disconnectLater(peripheral, kLostConnection);
    }
  }
}

sdbus::IProxy& Central::proxy(const std::string& path) {
  auto& slot = proxies_[path];
  if (!slot) slot = sdbus::createProxy(bus_->connection(), kService, path);
  return *slot;
}

std::shared_ptr<Peripheral> Central::peripheralLocked(const std::string& path) {
  auto& slot = peripherals_[path];
  if (!slot) {
    slot = std::make_shared<Peripheral>(
        weak_from_this(), path,
        property<std::string>(tree_.device(path), "Address").value_or(path));
  }
  return slot;
}

void Central::post(std::function<void(ble::CentralDelegate&)> f) {
  queue_.post([weak = weak_from_this(), f = std::move(f)] {
    if (auto self = weak.lock()) self->delegate_.deliver(f);
  });
}

void Central::post(
    const std::shared_ptr<Peripheral>& peripheral,
    std::function<void(ble::PeripheralDelegate&, const std::shared_ptr<ble::Peripheral>&)> f) {
  queue_.post([weak = weak_from_this(), peripheral, f = std::move(f)] {
    if (weak.lock()) peripheral->deliver(f);
  });
}

void Central::reportDiscoveryLocked(const std::string& path) {
  auto peripheral = peripheralLocked(path);
  const auto device = tree_.device(path);
  // BlueZ keeps the advertised local name in Name; Alias falls back to the
  // address, which is no advertised name.
  auto name = property<std::string>(device, "Name");
  auto seen = reportedNames_.find(path);
  if (seen != reportedNames_.end() && seen->second == name) return;
  reportedNames_[path] = name;
  const auto rssi = property<std::int16_t>(device, "RSSI").value_or(127);
  peripheral->setName(name);
  post([this, peripheral, name, rssi](ble::CentralDelegate& delegate) {
    {
      std::lock_guard lock(mutex_);
      if (!scanning_) return;
    }
    delegate.centralManager(*this, peripheral, ble::AdvertisementData{name}, rssi);
  });
}

void Central::scanForPeripherals() {
  std::string adapter;
  {
    std::lock_guard lock(mutex_);
    scanning_ = true;
    reportedNames_.clear();
    // Devices BlueZ already knows may not advertise anew during the scan.
    for (const auto& path : tree_.devicePaths()) reportDiscoveryLocked(path);
    adapter = tree_.adapterPath();
  }
  if (adapter.empty()) return;
  bus_->post([this, adapter] {
    // InProgress (another client scanning) is fine: results arrive all the same.
    proxy(adapter)
        .callMethodAsync("StartDiscovery")
        .onInterface(kAdapter)
        .uponReplyInvoke([](const sdbus::Error*) {});
  });
}

void Central::stopScan() {
  std::string adapter;
  {
    std::lock_guard lock(mutex_);
    if (!scanning_) return;
    scanning_ = false;
    adapter = tree_.adapterPath();
  }
  if (adapter.empty()) return;
  bus_->post([this, adapter] {
    proxy(adapter)
        .callMethodAsync("StopDiscovery")
        .onInterface(kAdapter)
        .uponReplyInvoke([](const sdbus::Error*) {});
  });
}

void Central::connect(const std::shared_ptr<ble::Peripheral>& target) {
  auto peripheral = std::dynamic_pointer_cast<Peripheral>(target);
  if (!peripheral || !peripheral->beginConnecting()) return;
  auto done = [this, peripheral](const sdbus::Error* error) {
    if (error && error->getName() != "org.bluez.Error.AlreadyConnected") {
      disconnected(peripheral, errorFrom(*error));
      return;
    }
    if (!peripheral->finishConnecting()) return;
    post([this, peripheral](ble::CentralDelegate& delegate) {
      delegate.centralManager(*this, peripheral);
    });
  };
  bus_->post([this, peripheral, done] {
    try {
      proxy(peripheral->path())
          .callMethodAsync("Connect")
          .onInterface(kDevice)
          .withTimeout(kConnectLimit)
          .uponReplyInvoke(done);
    } catch (const sdbus::Error& error) {
      disconnected(peripheral, errorFrom(error));
    }
  });
}

void Central::cancelPeripheralConnection(const std::shared_ptr<ble::Peripheral>& target) {
  auto peripheral = std::dynamic_pointer_cast<Peripheral>(target);
  if (!peripheral || !peripheral->beginDisconnecting()) return;
  bus_->post([this, peripheral] {
    try {
      proxy(peripheral->path())
          .callMethodAsync("Disconnect")
          .onInterface(kDevice)
          .withTimeout(kCallLimit)
          .uponReplyInvoke([this, peripheral](const sdbus::Error*) {
            // Whatever BlueZ says, the link is given up.
            disconnected(peripheral, std::nullopt);
          });
    } catch (const sdbus::Error&) {
      disconnected(peripheral, std::nullopt);
    }
  });
}

void Central::disconnected(const std::shared_ptr<Peripheral>& peripheral,
                           std::optional<ble::Error> error) {
  const auto reported = peripheral->disconnected(std::move(error));
  if (!reported) return;
  post([this, peripheral, error = *reported](ble::CentralDelegate& delegate) {
    delegate.centralManager(*this, peripheral, error ? &*error : nullptr);
  });
}

void Central::disconnectLater(const std::shared_ptr<Peripheral>& peripheral,
                              std::optional<ble::Error> error) {
  queue_.post([weak = weak_from_this(), peripheral, error] {
    if (auto self = weak.lock()) self->disconnected(peripheral, error);
  });
}

std::vector<std::shared_ptr<GattService>> Central::servicesLocked(
    const std::string& devicePath) const {
  std::vector<std::shared_ptr<GattService>> services;
  for (auto& entry : tree_.services(devicePath)) {
    std::vector<std::shared_ptr<GattCharacteristic>> characteristics;
    for (auto& characteristic : entry.characteristics) {
      characteristics.push_back(std::make_shared<GattCharacteristic>(
          characteristic.path, characteristic.uuid, std::move(characteristic.value)));
    }
    services.push_back(
        std::make_shared<GattService>(entry.path, entry.uuid, std::move(characteristics)));
  }
  return services;
}

void Central::discoverServices(const std::shared_ptr<Peripheral>& peripheral) {
  bool resolved, connected;
  {
    // Under the tree's lock, so a ServicesResolved signal either is seen
    // here or finds the request in place.
    std::lock_guard lock(mutex_);
    resolved = tree_.servicesResolved(peripheral->path());
    connected = peripheral->wantServices(resolved);
  }
  if (!connected) {
    post(peripheral, [](auto& delegate, const auto& self) {
      const ble::Error error{3, "The device is not connected."};
      delegate.peripheral(self, &error);
    });
    return;
  }
  if (resolved) servicesResolved(peripheral);
}

void Central::servicesResolved(const std::shared_ptr<Peripheral>& peripheral) {
  std::vector<std::shared_ptr<GattService>> services;
  {
    std::lock_guard lock(mutex_);
    services = servicesLocked(peripheral->path());
  }
  peripheral->setServices(std::move(services));
  post(peripheral, [](auto& delegate, const auto& self) { delegate.peripheral(self, nullptr); });
}

void Central::readValue(const std::shared_ptr<Peripheral>& peripheral,
                        const std::shared_ptr<GattCharacteristic>& characteristic) {
  auto done = [this, peripheral, characteristic](const sdbus::Error* error,
                                                 std::vector<std::uint8_t> value) {
    std::optional<ble::Error> failure;
    if (error) failure = errorFrom(*error);
    post(peripheral,
         [characteristic, failure, value = std::move(value)](auto& delegate, const auto& self) {
           if (!failure) characteristic->setValue(value);
           delegate.peripheralDidUpdateValueForCharacteristic(self, characteristic,
                                                              failure ? &*failure : nullptr);
         });
  };
  bus_->post([this, characteristic, done] {
    try {
      proxy(characteristic->path())
          .callMethodAsync("ReadValue")
          .onInterface(kGattCharacteristic)
          .withTimeout(kCallLimit)
          .withArguments(Properties{})
          .uponReplyInvoke(done);
    } catch (const sdbus::Error& error) {
      done(&error, {});
    }
  });
}

void Central::writeValue(const std::shared_ptr<Peripheral>& peripheral,
                         const std::shared_ptr<GattCharacteristic>& characteristic, Bytes data,
                         ble::WriteType type) {
  const bool acknowledged = type == ble::WriteType::WithResponse;
  // Writes go out in the order made: D-Bus keeps one sender's messages in
  // order and BlueZ queues them per characteristic.
  Properties options{{"type", sdbus::Variant(std::string(acknowledged ? "request" : "command"))}};
  auto done = [this, peripheral, characteristic, acknowledged](const sdbus::Error* error) {
    if (!acknowledged) return;
    std::optional<ble::Error> failure;
    if (error) failure = errorFrom(*error);
    post(peripheral, [characteristic, failure](auto& delegate, const auto& self) {
      delegate.peripheralDidWriteValueForCharacteristic(self, characteristic,
                                                        failure ? &*failure : nullptr);
    });
  };
  bus_->post(
      [this, write = Write{characteristic->path(), std::move(data), options, done}]() mutable {
        writes_.submit(std::move(write), [this](Write next) { sendWrite(std::move(next)); });
      });
}

// On the bus's thread; each reply lets the next waiting write go.
void Central::sendWrite(Write write) {
  auto finished = [this, done = std::move(write.done)](const sdbus::Error* error) {
    done(error);
    writes_.answered([this](Write next) { sendWrite(std::move(next)); });
  };
  try {
    proxy(write.path)
        .callMethodAsync("WriteValue")
        .onInterface(kGattCharacteristic)
        .withTimeout(kCallLimit)
        .withArguments(write.data, write.options)
        .uponReplyInvoke(finished);
  } catch (const sdbus::Error& error) {
    finished(&error);
  }
}

void Central::setNotify(const std::shared_ptr<GattCharacteristic>& characteristic, bool enabled) {
  bus_->post([this, characteristic, enabled] {
    proxy(characteristic->path())
        .callMethodAsync(enabled ? "StartNotify" : "StopNotify")
        .onInterface(kGattCharacteristic)
        .withTimeout(kCallLimit)
        .uponReplyInvoke([](const sdbus::Error*) {});
  });
}

std::optional<std::uint16_t> Central::mtu(const std::string& devicePath) const {
  std::lock_guard lock(mutex_);
  return tree_.mtu(devicePath);
}

// --- signals -----------------------------------------------------------------

void Central::onPropertiesChanged(sdbus::Message& message) {
  const std::string path = message.getPath();
  std::string interface;
  Properties changed;
  std::vector<std::string> invalidated;
  try {
    message >> interface >> changed >> invalidated;
  } catch (const sdbus::Error&) {
    return;
  }
  std::lock_guard lock(mutex_);
  const TreeChange change = tree_.propertiesChanged(path, interface, changed, invalidated);
  if (change.adapter) reportStateLocked();
  if (change.device) {
    auto peripheral = peripheralLocked(path);
    if (changed.count("Name"))
      peripheral->setName(property<std::string>(tree_.device(path), "Name"));
    if (property<bool>(changed, "Connected") == false) disconnectLater(peripheral, std::nullopt);
    if (property<bool>(changed, "ServicesResolved") == true && peripheral->takeServicesWanted()) {
      queue_.post([weak = weak_from_this(), peripheral] {
        if (auto self = weak.lock()) self->servicesResolved(peripheral);
      });
    }
    if (scanning_ && (changed.count("RSSI") || changed.count("Name") ||
                      changed.count("ManufacturerData") || changed.count("ServiceData"))) {
      reportDiscoveryLocked(path);
    }
  }
  if (change.value) {
    const Bytes value = property<std::vector<std::uint8_t>>(changed, "Value").value_or(Bytes{});
    for (const auto& [devicePath, candidate] : peripherals_) {
      if (path.rfind(devicePath + "/", 0) != 0) continue;
      auto characteristic = candidate->characteristicAt(path);
      if (!characteristic || !candidate->notifying(path)) continue;
      // The value is set just before the delegate hears of it, so each
      // notification is seen with its own bytes.
      post(candidate, [characteristic, value](auto& delegate, const auto& self) {
        characteristic->setValue(value);
        delegate.peripheralDidUpdateValueForCharacteristic(self, characteristic, nullptr);
      });
    }
  }
}

void Central::onInterfacesAdded(sdbus::Message& message) {
  sdbus::ObjectPath path;
  Interfaces interfaces;
  try {
    message >> path >> interfaces;
  } catch (const sdbus::Error&) {
    return;
  }
  std::lock_guard lock(mutex_);
  const TreeChange change = tree_.interfacesAdded(path, interfaces);
  if (change.adapter) reportStateLocked();
  if (change.device && scanning_) reportDiscoveryLocked(path);
}

void Central::onInterfacesRemoved(sdbus::Message& message) {
  sdbus::ObjectPath path;
  std::vector<std::string> names;
  try {
    message >> path >> names;
  } catch (const sdbus::Error&) {
    return;
  }
  std::lock_guard lock(mutex_);
  const TreeChange change = tree_.interfacesRemoved(path, names);
  if (change.deviceRemoved) {
    if (auto found = peripherals_.find(path); found != peripherals_.end()) {
      disconnectLater(found->second, kLostConnection);
    }
  }
  if (change.adapter) reportStateLocked();
}

// BlueZ restarted or went away: its objects went with it.
void Central::onOwnerChanged(sdbus::Message& message) {
  std::string name, before, after;
  try {
    message >> name >> before >> after;
  } catch (const sdbus::Error&) {
    return;
  }
  {
    std::lock_guard lock(mutex_);
    tree_.clear();
    for (const auto& [path, peripheral] : peripherals_)
      disconnectLater(peripheral, kLostConnection);
    reportStateLocked();
  }
  // On the bus's thread already: BlueZ's objects are listed anew.
  if (!after.empty()) listObjects(nullptr);
}

// --- the factory ----------------------------------------------------------------

BluezCentralFactory::BluezCentralFactory() {
  makeVariantsOutliveThisBackend();
}

std::shared_ptr<ble::Central> BluezCentralFactory::makeCentral(ble::CentralDelegate& delegate,
                                                               const std::string& queueName) {
  auto bus = SharedBus::acquire();
  if (!bus) return transport::NoBleAdapter().makeCentral(delegate, queueName);
  auto central = std::make_shared<Central>(delegate, queueName, std::move(bus));
  try {
    central->start();
  } catch (const sdbus::Error&) {
    return transport::NoBleAdapter().makeCentral(delegate, queueName);
  }
  return central;
}

}  // namespace orvante::platform::bluez
