#include "central.hpp"

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <deque>
#include <map>
#include <mutex>
#include <set>

#include "../../transport/delegate_slot.hpp"
#include "../../transport/serial_queue.hpp"
#include "../../transport/unavailable_services.hpp"
#include "bluez_bus.hpp"
#include "bus_loop.hpp"
#include "gatt_objects.hpp"

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

Bytes bytesOf(const Properties& properties, const std::string& name) {
  return property<std::vector<std::uint8_t>>(properties, name).value_or(Bytes{});
}

class Central;

class Peripheral final : public ble::Peripheral, public std::enable_shared_from_this<Peripheral> {
 public:
  Peripheral(std::weak_ptr<Central> central, std::string path, std::string address)
      : central_(std::move(central)), path_(std::move(path)), address_(std::move(address)) {}

  const std::string& path() const { return path_; }

  std::optional<std::string> name() const override {
    std::lock_guard lock(mutex_);
    return name_;
  }
  std::optional<std::string> identifier() const override { return address_; }
  ble::PeripheralState state() const override {
    std::lock_guard lock(mutex_);
    return state_;
  }
  std::vector<std::shared_ptr<ble::Service>> services() const override {
    std::lock_guard lock(mutex_);
    return {services_.begin(), services_.end()};
  }
  void setDelegate(ble::PeripheralDelegate* delegate) override { delegate_.set(delegate); }
  void discoverServices() override;
  void discoverCharacteristics(const std::shared_ptr<ble::Service>& service) override;
  void readValue(const std::shared_ptr<ble::Characteristic>& characteristic) override;
  void writeValue(ByteView data, const std::shared_ptr<ble::Characteristic>& characteristic,
                  ble::WriteType type) override;
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<ble::Characteristic>& characteristic) override;
  std::size_t maximumWriteValueLength(ble::WriteType type) const override;

  // Runs f with the delegate, if any, on the central's queue.
  void deliver(std::function<void(ble::PeripheralDelegate&, const std::shared_ptr<ble::Peripheral>&)>
                   f) {
    delegate_.deliver([&](ble::PeripheralDelegate& delegate) { f(delegate, shared_from_this()); });
  }

  std::shared_ptr<GattCharacteristic> characteristicAt(const std::string& path) const {
    std::lock_guard lock(mutex_);
    for (const auto& service : services_) {
      for (const auto& characteristic : service->all()) {
        if (characteristic->path() == path) return characteristic;
      }
    }
    return nullptr;
  }

 private:
  friend class Central;
  const std::weak_ptr<Central> central_;
  const std::string path_;
  const std::string address_;
  mutable std::mutex mutex_;
  transport::DelegateSlot<ble::PeripheralDelegate> delegate_;
  std::optional<std::string> name_;
  ble::PeripheralState state_ = ble::PeripheralState::Disconnected;
  std::vector<std::shared_ptr<GattService>> services_;
  bool servicesWanted_ = false;
  std::set<std::string> notifying_;
};

class Central final : public ble::Central, public std::enable_shared_from_this<Central> {
 public:
  Central(ble::CentralDelegate& delegate, const std::string& queueName,
          std::unique_ptr<sdbus::IConnection> bus)
      : loop_(std::make_unique<BusLoop>(std::move(bus))), delegate_(&delegate), queue_(queueName) {}

  ~Central() override {
    // A scan's stop or a disconnection asked for last still goes out; no
    // D-Bus handler or bus task runs past this point, they use `this`.
    loop_->finish();
  }

  void start();

  ble::CentralState state() const override {
    std::lock_guard lock(mutex_);
    return stateLocked();
  }
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

  void post(std::function<void(ble::CentralDelegate&)> f);
  void post(const std::shared_ptr<Peripheral>& peripheral,
            std::function<void(ble::PeripheralDelegate&, const std::shared_ptr<ble::Peripheral>&)>
                f);

 private:
  ble::CentralState stateLocked() const;
  sdbus::IProxy& proxy(const std::string& path);
  std::shared_ptr<Peripheral> peripheralLocked(const std::string& path);
  std::vector<std::shared_ptr<GattService>> servicesLocked(const std::string& devicePath) const;
  void reportDiscoveryLocked(const std::string& path);
  void reportStateLocked();
  void disconnected(const std::shared_ptr<Peripheral>& peripheral,
                    std::optional<ble::Error> error);
  void servicesResolved(const std::shared_ptr<Peripheral>& peripheral);

  // D-Bus signals, on the bus's event loop thread.
  void onPropertiesChanged(sdbus::Message& message);
  void onInterfacesAdded(sdbus::Message& message);
  void onInterfacesRemoved(sdbus::Message& message);
  void onOwnerChanged(sdbus::Message& message);
  void merge(const ManagedObjects& objects);
  void listObjects(std::function<void()> then);

  // Every use of the bus happens on its thread.
  std::unique_ptr<BusLoop> loop_;
  mutable std::mutex mutex_;
  transport::DelegateSlot<ble::CentralDelegate> delegate_;
  std::map<std::string, Interfaces> tree_;
  std::optional<ble::CentralState> reported_;
  bool scanning_ = false;
  // What this scan reported of each device: reported again only when its
  // name changes, as a central without duplicates does.
  std::map<std::string, std::optional<std::string>> reportedNames_;
  std::map<std::string, std::shared_ptr<Peripheral>> peripherals_;
  // Kept, on the loop's thread: a proxy's pending calls end with it.
  std::map<std::string, std::unique_ptr<sdbus::IProxy>> proxies_;
  // On the loop's thread: writes waiting for a place among those in flight.
  // The bus daemon refuses a connection more than 128 calls awaiting their
  // replies, and a write without response is a call too; so a long message
  // of quick writes waits here, in order, instead of being refused.
  struct Write {
    std::string path;
    Bytes data;
    Properties options;
    std::function<void(const sdbus::Error*)> done;
  };
  static constexpr std::size_t kWritesInFlight = 32;
  void sendWrite(Write write);
  std::deque<Write> waitingWrites_;
  std::size_t writesInFlight_ = 0;
  transport::SerialQueue queue_;
};

// --- peripheral operations ---------------------------------------------------

void Peripheral::discoverServices() {
  if (auto central = central_.lock()) central->discoverServices(shared_from_this());
}

void Peripheral::discoverCharacteristics(const std::shared_ptr<ble::Service>& service) {
  auto central = central_.lock();
  if (!central) return;
  // BlueZ resolved the characteristics with the services already.
  central->post(shared_from_this(), [service](auto& delegate, const auto& self) {
    if (auto gatt = std::dynamic_pointer_cast<GattService>(service)) gatt->markDiscovered();
    delegate.peripheral(self, service, nullptr);
  });
}

void Peripheral::readValue(const std::shared_ptr<ble::Characteristic>& characteristic) {
  auto central = central_.lock();
  auto gatt = std::dynamic_pointer_cast<GattCharacteristic>(characteristic);
  if (central && gatt) central->readValue(shared_from_this(), gatt);
}

void Peripheral::writeValue(ByteView data,
                            const std::shared_ptr<ble::Characteristic>& characteristic,
                            ble::WriteType type) {
  auto central = central_.lock();
  auto gatt = std::dynamic_pointer_cast<GattCharacteristic>(characteristic);
  if (central && gatt) {
    central->writeValue(shared_from_this(), gatt, Bytes(data.begin(), data.end()), type);
  }
}

void Peripheral::setNotifyValue(bool enabled,
                                const std::shared_ptr<ble::Characteristic>& characteristic) {
  auto central = central_.lock();
  auto gatt = std::dynamic_pointer_cast<GattCharacteristic>(characteristic);
  if (!central || !gatt) return;
  {
    std::lock_guard lock(mutex_);
    if (enabled) {
      notifying_.insert(gatt->path());
    } else {
      notifying_.erase(gatt->path());
    }
  }
  central->setNotify(gatt, enabled);
}

std::size_t Peripheral::maximumWriteValueLength(ble::WriteType) const {
  // BlueZ 5.62 and later tell the link's ATT MTU on each characteristic;
  // older ones do not, and the smallest MTU is assumed.
  constexpr std::size_t kAttHeader = 3, kLongestValue = 512;
  const auto central = central_.lock();
  const auto mtu = central ? central->mtu(path_) : std::nullopt;
  if (!mtu || *mtu < kSmallestWriteValueLength + kAttHeader) return kSmallestWriteValueLength;
  return std::min<std::size_t>(*mtu - kAttHeader, kLongestValue);
}

// --- central -----------------------------------------------------------------

void Central::start() {
  auto listed = std::make_shared<std::promise<void>>();
  loop_->post([this, listed] {
    auto& bus = loop_->bus();
    // Signals are watched before the objects are listed, so no change falls
    // between the two.
    bus.addMatch(
        "type='signal',interface='org.freedesktop.DBus.Properties',member='PropertiesChanged',"
        "path_namespace='/org/bluez'",
        [this](sdbus::Message& m) { onPropertiesChanged(m); }, sdbus::floating_slot);
    bus.addMatch("type='signal',interface='org.freedesktop.DBus.ObjectManager',path='/'",
                 [this](sdbus::Message& m) {
                   if (m.getMemberName() == "InterfacesAdded") onInterfacesAdded(m);
                   if (m.getMemberName() == "InterfacesRemoved") onInterfacesRemoved(m);
                 },
                 sdbus::floating_slot);
    bus.addMatch(
        "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.bluez'",
        [this](sdbus::Message& m) { onOwnerChanged(m); }, sdbus::floating_slot);
    listObjects([listed] { listed->set_value(); });
  });
  // The first state is known before the central is handed out, unless
  // BlueZ is too slow to answer; then it follows with its callback.
  listed->get_future().wait_for(kListLimit);
}

// On the loop's thread.
void Central::listObjects(std::function<void()> then) {
  proxy("/")
      .callMethodAsync("GetManagedObjects")
      .onInterface(kObjectManager)
      .withTimeout(kCallLimit)
      .uponReplyInvoke([this, then](const sdbus::Error* error, ManagedObjects objects) {
        if (!error) merge(objects);
        {
          std::lock_guard lock(mutex_);
          reportStateLocked();
        }
        if (then) then();
      });
}

void Central::merge(const ManagedObjects& objects) {
  std::lock_guard lock(mutex_);
  for (const auto& [path, interfaces] : objects) {
    for (const auto& [name, properties] : interfaces) {
      auto& known = tree_[path][name];
      for (const auto& [key, value] : properties) known[key] = value;
    }
  }
}

ble::CentralState Central::stateLocked() const {
  for (const auto& [path, interfaces] : tree_) {
    auto adapter = interfaces.find(kAdapter);
    if (adapter == interfaces.end()) continue;
    // A radio blocked by rfkill reads as off: the user can turn it on.
    return property<bool>(adapter->second, "Powered").value_or(false)
               ? ble::CentralState::PoweredOn
               : ble::CentralState::PoweredOff;
  }
  return ble::CentralState::Unsupported;
}

std::string adapterPath(const std::map<std::string, Interfaces>& tree) {
  for (const auto& [path, interfaces] : tree) {
    if (interfaces.count(kAdapter)) return path;
  }
  return {};
}

void Central::reportStateLocked() {
  const auto now = stateLocked();
  if (reported_ == now) return;
  reported_ = now;
  post([this](ble::CentralDelegate& delegate) { delegate.centralManagerDidUpdateState(*this); });
  if (now == ble::CentralState::PoweredOn) return;
  // Without a powered radio no link survives.
  for (const auto& [path, peripheral] : peripherals_) {
    if (peripheral->state() != ble::PeripheralState::Disconnected) {
      queue_.post([weak = weak_from_this(), peripheral = peripheral] {
        if (auto self = weak.lock()) self->disconnected(peripheral, kLostConnection);
      });
    }
  }
}

sdbus::IProxy& Central::proxy(const std::string& path) {
  auto& slot = proxies_[path];
  if (!slot) slot = sdbus::createProxy(loop_->bus(), kService, path);
  return *slot;
}

std::shared_ptr<Peripheral> Central::peripheralLocked(const std::string& path) {
  auto& slot = peripherals_[path];
  if (!slot) {
    const auto& device = tree_[path][kDevice];
    slot = std::make_shared<Peripheral>(weak_from_this(), path,
                                        property<std::string>(device, "Address").value_or(path));
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
  const auto& device = tree_[path][kDevice];
  // BlueZ keeps the advertised local name in Name; Alias falls back to the
  // address, which is no advertised name.
  auto name = property<std::string>(device, "Name");
  auto seen = reportedNames_.find(path);
  if (seen != reportedNames_.end() && seen->second == name) return;
  reportedNames_[path] = name;
  const auto rssi = property<std::int16_t>(device, "RSSI").value_or(127);
  {
    std::lock_guard lock(peripheral->mutex_);
    peripheral->name_ = name;
  }
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
    for (const auto& [path, interfaces] : tree_) {
      if (interfaces.count(kDevice)) reportDiscoveryLocked(path);
    }
    adapter = adapterPath(tree_);
  }
  if (adapter.empty()) return;
  loop_->post([this, adapter] {
    // InProgress (another client scanning) is fine: results arrive all the same.
    proxy(adapter).callMethodAsync("StartDiscovery").onInterface(kAdapter).uponReplyInvoke(
        [](const sdbus::Error*) {});
  });
}

void Central::stopScan() {
  std::string adapter;
  {
    std::lock_guard lock(mutex_);
    if (!scanning_) return;
    scanning_ = false;
    adapter = adapterPath(tree_);
  }
  if (adapter.empty()) return;
  loop_->post([this, adapter] {
    proxy(adapter).callMethodAsync("StopDiscovery").onInterface(kAdapter).uponReplyInvoke(
        [](const sdbus::Error*) {});
  });
}

void Central::connect(const std::shared_ptr<ble::Peripheral>& target) {
  auto peripheral = std::dynamic_pointer_cast<Peripheral>(target);
  if (!peripheral) return;
  {
    std::lock_guard lock(peripheral->mutex_);
    if (peripheral->state_ == ble::PeripheralState::Connected) return;
    peripheral->state_ = ble::PeripheralState::Connecting;
  }
  auto done = [this, peripheral](const sdbus::Error* error) {
    if (error && error->getName() != "org.bluez.Error.AlreadyConnected") {
      disconnected(peripheral, errorFrom(*error));
      return;
    }
    {
      std::lock_guard lock(peripheral->mutex_);
      if (peripheral->state_ != ble::PeripheralState::Connecting) return;
      peripheral->state_ = ble::PeripheralState::Connected;
    }
    post([this, peripheral](ble::CentralDelegate& delegate) {
      delegate.centralManager(*this, peripheral);
    });
  };
  loop_->post([this, peripheral, done] {
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
  if (!peripheral) return;
  {
    std::lock_guard lock(peripheral->mutex_);
    if (peripheral->state_ == ble::PeripheralState::Disconnected) return;
    peripheral->state_ = ble::PeripheralState::Disconnecting;
  }
  loop_->post([this, peripheral] {
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

// Reports a link's end once: a cancelled link without an error, a lost one
// with the error given or a generic one.
void Central::disconnected(const std::shared_ptr<Peripheral>& peripheral,
                           std::optional<ble::Error> error) {
  {
    std::lock_guard lock(peripheral->mutex_);
    if (peripheral->state_ == ble::PeripheralState::Disconnected) return;
    if (peripheral->state_ == ble::PeripheralState::Disconnecting) {
      error.reset();
    } else if (!error) {
      error = kLostConnection;
    }
    peripheral->state_ = ble::PeripheralState::Disconnected;
    peripheral->servicesWanted_ = false;
    peripheral->notifying_.clear();
  }
  post([this, peripheral, error](ble::CentralDelegate& delegate) {
    delegate.centralManager(*this, peripheral, error ? &*error : nullptr);
  });
}

std::vector<std::shared_ptr<GattService>> Central::servicesLocked(
    const std::string& devicePath) const {
  std::vector<std::shared_ptr<GattService>> services;
  for (const auto& [servicePath, interfaces] : tree_) {
    auto service = interfaces.find(kGattService);
    if (service == interfaces.end()) continue;
    if (property<sdbus::ObjectPath>(service->second, "Device").value_or(sdbus::ObjectPath{}) !=
        devicePath) {
      continue;
    }
    std::vector<std::shared_ptr<GattCharacteristic>> characteristics;
    for (const auto& [path, others] : tree_) {
      auto characteristic = others.find(kGattCharacteristic);
      if (characteristic == others.end()) continue;
      const auto& properties = characteristic->second;
      if (property<sdbus::ObjectPath>(properties, "Service").value_or(sdbus::ObjectPath{}) !=
          servicePath) {
        continue;
      }
      // BlueZ caches the last value read; the manufacturer name is often there.
      std::optional<Bytes> value;
      if (properties.count("Value")) value = bytesOf(properties, "Value");
      characteristics.push_back(std::make_shared<GattCharacteristic>(
          path, ble::Uuid(property<std::string>(properties, "UUID").value_or("")),
          std::move(value)));
    }
    services.push_back(std::make_shared<GattService>(
        servicePath, ble::Uuid(property<std::string>(service->second, "UUID").value_or("")),
        std::move(characteristics)));
  }
  return services;
}

void Central::discoverServices(const std::shared_ptr<Peripheral>& peripheral) {
  bool resolved, connected;
  {
    // Under the tree's lock, so a ServicesResolved signal either is seen
    // here or finds the request in place.
    std::lock_guard lock(mutex_);
    auto device = tree_.find(peripheral->path());
    resolved = device != tree_.end() && device->second.count(kDevice) &&
               property<bool>(device->second.at(kDevice), "ServicesResolved").value_or(false);
    std::lock_guard peripheralLock(peripheral->mutex_);
    connected = peripheral->state_ == ble::PeripheralState::Connected;
    if (connected) peripheral->servicesWanted_ = !resolved;
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
  {
    std::lock_guard lock(peripheral->mutex_);
    peripheral->servicesWanted_ = false;
    peripheral->services_ = std::move(services);
  }
  post(peripheral, [](auto& delegate, const auto& self) { delegate.peripheral(self, nullptr); });
}

void Central::readValue(const std::shared_ptr<Peripheral>& peripheral,
                        const std::shared_ptr<GattCharacteristic>& characteristic) {
  auto done = [this, peripheral, characteristic](const sdbus::Error* error,
                                                 std::vector<std::uint8_t> value) {
    std::optional<ble::Error> failure;
    if (error) failure = errorFrom(*error);
    post(peripheral, [characteristic, failure, value = std::move(value)](auto& delegate,
                                                                         const auto& self) {
      if (!failure) characteristic->setValue(value);
      delegate.peripheralDidUpdateValueForCharacteristic(self, characteristic,
                                                         failure ? &*failure : nullptr);
    });
  };
  loop_->post([this, characteristic, done] {
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
  loop_->post([this, write = Write{characteristic->path(), std::move(data), options, done}]() mutable {
    if (writesInFlight_ >= kWritesInFlight) {
      waitingWrites_.push_back(std::move(write));
      return;
    }
    sendWrite(std::move(write));
  });
}

// On the loop's thread; each reply lets the next waiting write go.
void Central::sendWrite(Write write) {
  ++writesInFlight_;
  auto finished = [this, done = std::move(write.done)](const sdbus::Error* error) {
    --writesInFlight_;
    done(error);
    if (!waitingWrites_.empty() && writesInFlight_ < kWritesInFlight) {
      Write next = std::move(waitingWrites_.front());
      waitingWrites_.pop_front();
      sendWrite(std::move(next));
    }
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
  loop_->post([this, characteristic, enabled] {
    proxy(characteristic->path())
        .callMethodAsync(enabled ? "StartNotify" : "StopNotify")
        .onInterface(kGattCharacteristic)
        .withTimeout(kCallLimit)
        .uponReplyInvoke([](const sdbus::Error*) {});
  });
}

// The largest MTU any characteristic of the device reports; they share one link.
std::optional<std::uint16_t> Central::mtu(const std::string& devicePath) const {
  std::optional<std::uint16_t> largest;
  std::lock_guard lock(mutex_);
  for (auto it = tree_.lower_bound(devicePath + "/"); it != tree_.end(); ++it) {
    if (it->first.rfind(devicePath + "/", 0) != 0) break;
    auto characteristic = it->second.find(kGattCharacteristic);
    if (characteristic == it->second.end()) continue;
    if (auto value = property<std::uint16_t>(characteristic->second, "MTU")) {
      largest = std::max(largest.value_or(0), *value);
    }
  }
  return largest;
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
  std::shared_ptr<Peripheral> peripheral;
  std::lock_guard lock(mutex_);
  auto& known = tree_[path][interface];
  for (const auto& [key, value] : changed) known[key] = value;
  for (const auto& key : invalidated) known.erase(key);

  if (interface == kAdapter) reportStateLocked();

  if (interface == kDevice) {
    peripheral = peripheralLocked(path);
    if (changed.count("Name")) {
      std::lock_guard peripheralLock(peripheral->mutex_);
      peripheral->name_ = property<std::string>(known, "Name");
    }
    if (property<bool>(changed, "Connected") == false) {
      queue_.post([weak = weak_from_this(), peripheral] {
        if (auto self = weak.lock()) self->disconnected(peripheral, std::nullopt);
      });
    }
    if (property<bool>(changed, "ServicesResolved") == true) {
      bool wanted;
      {
        std::lock_guard peripheralLock(peripheral->mutex_);
        wanted = peripheral->servicesWanted_;
      }
      if (wanted) {
        queue_.post([weak = weak_from_this(), peripheral] {
          if (auto self = weak.lock()) self->servicesResolved(peripheral);
        });
      }
    }
    if (scanning_ && (changed.count("RSSI") || changed.count("Name") ||
                      changed.count("ManufacturerData") || changed.count("ServiceData"))) {
      reportDiscoveryLocked(path);
    }
  }

  if (interface == kGattCharacteristic && changed.count("Value")) {
    for (const auto& [devicePath, candidate] : peripherals_) {
      if (path.rfind(devicePath + "/", 0) != 0) continue;
      auto characteristic = candidate->characteristicAt(path);
      bool notifying;
      {
        std::lock_guard peripheralLock(candidate->mutex_);
        notifying = candidate->notifying_.count(path) > 0;
      }
      if (!characteristic || !notifying) continue;
      // The value is set just before the delegate hears of it, so each
      // notification is seen with its own bytes.
      post(candidate, [characteristic, value = bytesOf(changed, "Value")](auto& delegate,
                                                                          const auto& self) {
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
  for (const auto& [name, properties] : interfaces) tree_[path][name] = properties;
  if (interfaces.count(kAdapter)) reportStateLocked();
  if (interfaces.count(kDevice) && scanning_) reportDiscoveryLocked(path);
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
  auto object = tree_.find(path);
  if (object == tree_.end()) return;
  for (const auto& name : names) object->second.erase(name);
  if (object->second.empty()) tree_.erase(object);
  const bool device = std::find(names.begin(), names.end(), kDevice) != names.end();
  if (device) {
    auto found = peripherals_.find(path);
    if (found != peripherals_.end()) {
      queue_.post([weak = weak_from_this(), peripheral = found->second] {
        if (auto self = weak.lock()) self->disconnected(peripheral, kLostConnection);
      });
    }
  }
  if (std::find(names.begin(), names.end(), kAdapter) != names.end()) reportStateLocked();
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
    for (const auto& [path, peripheral] : peripherals_) {
      queue_.post([weak = weak_from_this(), peripheral = peripheral] {
        if (auto self = weak.lock()) self->disconnected(peripheral, kLostConnection);
      });
    }
    reportStateLocked();
  }
  // On the loop's thread already: BlueZ's objects are listed anew.
  if (!after.empty()) listObjects(nullptr);
}

}  // namespace

BluezCentralFactory::BluezCentralFactory() {
  makeVariantsOutliveThisBackend();
}

std::shared_ptr<ble::Central> BluezCentralFactory::makeCentral(ble::CentralDelegate& delegate,
                                                               const std::string& queueName) {
  auto bus = connectSystemBus();
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
