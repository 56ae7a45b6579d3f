// The stand-in BlueZ's object tree: objects exported with their properties,
// property changes signalled, and the scripting and queries of tests, each
// run on the bus thread.

#include "fake_bluez.hpp"
#include "fake_bluez_model.hpp"

#include <future>

namespace orvante::testing {

using namespace fake_bluez;

FakeBluez::FakeBluez(const std::string& busAddress)
    : loop_(std::make_unique<testing::bluez::BusLoop>(
          sdbus::createSessionBusConnectionWithAddress(busAddress))),
      timer_(std::make_unique<Timer>(*loop_)) {
  onLoop([this] { start(); });
}

void FakeBluez::start() {
  auto& bus = loop_->bus();
  bus.requestName("org.bluez");
  // sd-bus answers GetManagedObjects from the objects exported below.
  bus.addObjectManager("/", sdbus::floating_slot);
  registerProfileManager();

  exportObject(kAdapterPath,
               {{kAdapter,
                 {{"Address", text("00:1A:7D:DA:71:13")},
                  {"Powered", sdbus::Variant(true)},
                  {"Discovering", sdbus::Variant(false)}}}},
               true);
}

FakeBluez::~FakeBluez() {
  // The bus objects go before the connection, with no handler running.
  timer_.reset();
  loop_->stop();
  profileClient_.reset();
  exported_.clear();
  manager_.reset();
}

// Runs the task on the bus's thread, where every use of the bus happens.
void FakeBluez::onLoop(const std::function<void()>& task) const {
  if (loop_->isCurrent()) {
    task();
    return;
  }
  std::promise<void> done;
  loop_->post([&] {
    try {
      task();
      done.set_value();
    } catch (...) {
      done.set_exception(std::current_exception());
    }
  });
  done.get_future().get();
}

FakeBluez::Device& FakeBluez::device(const std::string& path) {
  auto& slot = devices_[path];
  if (!slot) slot = std::make_unique<Device>();
  return *slot;
}

void FakeBluez::throwIfFailing(const std::string& path, const std::string& method) {
  if (!objects_.count(path)) {
    throw sdbus::Error("org.freedesktop.DBus.Error.UnknownObject", "Unknown object " + path);
  }
  auto& failing = device(path).failing;
  if (auto found = failing.find(method); found != failing.end()) {
    throw sdbus::Error(found->second, method + " failed");
  }
}

void FakeBluez::exportObject(const std::string& path, Interfaces interfaces, bool visible) {
  objects_[path] = std::move(interfaces);
  if (visible) publish(path);
}

namespace {

using Lookup = std::function<std::optional<sdbus::Variant>()>;

template <class T>
void expose(sdbus::IObject& object, const std::string& interface, const std::string& name,
            Lookup lookup) {
  object.registerProperty(name).onInterface(interface).withGetter([lookup]() -> T {
    auto value = lookup();
    return value ? value->get<T>() : T{};
  });
}

}  // namespace

// Puts the object on the bus with its methods and properties, and tells
// clients it was added.
void FakeBluez::publish(const std::string& path) {
  if (exported_.count(path)) return;
  exported_[path] = sdbus::createObject(loop_->bus(), path);
  auto& object = *exported_[path];
  const auto& interfaces = objects_.at(path);
  for (const auto& [interface, properties] : interfaces) {
    for (const auto& [name, value] : properties) {
      Lookup lookup = [this, path, interface = interface,
                       name = name]() -> std::optional<sdbus::Variant> {
        // The model changes on this thread only, and sd-bus calls getters
        // under its own lock, so taking ours here would invert the order.
        auto o = objects_.find(path);
        if (o == objects_.end()) return std::nullopt;
        auto i = o->second.find(interface);
        if (i == o->second.end()) return std::nullopt;
        auto p = i->second.find(name);
        if (p == i->second.end()) return std::nullopt;
        return p->second;
      };
      const auto type = value.peekValueType();
      if (type == "s") expose<std::string>(object, interface, name, lookup);
      if (type == "b") expose<bool>(object, interface, name, lookup);
      if (type == "n") expose<std::int16_t>(object, interface, name, lookup);
      if (type == "q") expose<std::uint16_t>(object, interface, name, lookup);
      if (type == "o") expose<sdbus::ObjectPath>(object, interface, name, lookup);
      if (type == "as") expose<std::vector<std::string>>(object, interface, name, lookup);
      if (type == "ay") expose<std::vector<std::uint8_t>>(object, interface, name, lookup);
    }
  }
  if (interfaces.count(kAdapter)) registerAdapter(path);
  if (interfaces.count(kDevice)) registerDevice(path);
  if (interfaces.count(kGattCharacteristic)) registerCharacteristic(path);
  object.finishRegistration();
  object.emitInterfacesAddedSignal();
}

void FakeBluez::setProperty(const std::string& path, const std::string& interface,
                            const std::string& name, const sdbus::Variant& value) {
  objects_[path][interface][name] = value;
  if (auto object = exported_.find(path); object != exported_.end()) {
    object->second->emitPropertiesChangedSignal(interface, {name});
  }
}

void FakeBluez::setPowered(bool powered) {
  if (!loop_->isCurrent()) return onLoop([&] { setPowered(powered); });
  if (!powered) {
    for (const auto& [path, interfaces] : objects_) {
      if (interfaces.count(kDevice) && exported_.count(path)) dropConnection(path);
    }
  }
  setProperty(kAdapterPath, kAdapter, "Powered", sdbus::Variant(powered));
}

void FakeBluez::notify(const std::string& path, Bytes value) {
  if (!loop_->isCurrent()) return onLoop([&] { notify(path, value); });
  if (!device(path).notifying) return;
  setProperty(path + "/service0010/char0011", kGattCharacteristic, "Value", sdbus::Variant(value));
}

void FakeBluez::setValue(const std::string& path, Bytes value) {
  if (!loop_->isCurrent()) return onLoop([&] { setValue(path, value); });
  objects_[path + "/service0010/char0011"][kGattCharacteristic]["Value"] = sdbus::Variant(value);
}

void FakeBluez::dropConnection(const std::string& path) {
  if (!loop_->isCurrent()) return onLoop([&] { dropConnection(path); });
  auto& state = objects_[path][kDevice];
  if (!state.count("Connected") || !state["Connected"].get<bool>()) return;
  device(path).notifying = false;
  setProperty(path, kDevice, "ServicesResolved", sdbus::Variant(false));
  setProperty(path, kDevice, "Connected", sdbus::Variant(false));
}

// The objects stay registered, since a client's call may be running in
// them; clients are told they are gone and calls on them fail.
void FakeBluez::removeDevice(const std::string& path) {
  if (!loop_->isCurrent()) return onLoop([&] { removeDevice(path); });
  for (auto it = objects_.begin(); it != objects_.end();) {
    if (it->first == path || it->first.rfind(path + "/", 0) == 0) {
      if (auto object = exported_.find(it->first); object != exported_.end()) {
        object->second->emitInterfacesRemovedSignal();
      }
      it = objects_.erase(it);
    } else {
      ++it;
    }
  }
}

void FakeBluez::setResponder(Responder responder) {
  if (!loop_->isCurrent()) return onLoop([&] { setResponder(responder); });
  responder_ = std::move(responder);
}

void FakeBluez::setSerialResponder(orvante::testing::PrinterPeer::Responder responder) {
  if (!loop_->isCurrent()) return onLoop([&] { setSerialResponder(responder); });
  serialResponder_ = std::move(responder);
}

void FakeBluez::setMtu(const std::string& path, std::uint16_t mtu) {
  if (!loop_->isCurrent()) return onLoop([&] { setMtu(path, mtu); });
  std::vector<std::string> characteristics;
  for (const auto& [object, interfaces] : objects_) {
    if (object.rfind(path + "/", 0) == 0 && interfaces.count(kGattCharacteristic)) {
      characteristics.push_back(object);
    }
  }
  for (const auto& object : characteristics) {
    setProperty(object, kGattCharacteristic, "MTU", sdbus::Variant(mtu));
  }
}

void FakeBluez::setConnectionInterval(std::chrono::microseconds interval) {
  if (!loop_->isCurrent()) return onLoop([&] { setConnectionInterval(interval); });
  connectionInterval_ = interval;
}

void FakeBluez::failMethod(const std::string& path, const std::string& method,
                           std::string errorName) {
  if (!loop_->isCurrent()) return onLoop([&] { failMethod(path, method, errorName); });
  device(path).failing[method] = std::move(errorName);
}

std::vector<FakeBluez::Write> FakeBluez::writes(const std::string& path) const {
  if (!loop_->isCurrent()) {
    std::vector<Write> result;
    onLoop([&] { result = writes(path); });
    return result;
  }
  auto found = devices_.find(path);
  return found == devices_.end() ? std::vector<Write>{} : found->second->writes;
}

bool FakeBluez::notifying(const std::string& path) const {
  if (!loop_->isCurrent()) {
    bool result;
    onLoop([&] { result = notifying(path); });
    return result;
  }
  auto found = devices_.find(path);
  return found != devices_.end() && found->second->notifying;
}

bool FakeBluez::discovering() const {
  if (!loop_->isCurrent()) {
    bool result;
    onLoop([&] { result = discovering(); });
    return result;
  }
  return discovering_;
}

int FakeBluez::connects(const std::string& path) const {
  if (!loop_->isCurrent()) {
    int result;
    onLoop([&] { result = connects(path); });
    return result;
  }
  auto found = devices_.find(path);
  return found == devices_.end() ? 0 : found->second->connects;
}

int FakeBluez::reads(const std::string& path) const {
  if (!loop_->isCurrent()) {
    int result;
    onLoop([&] { result = reads(path); });
    return result;
  }
  auto found = devices_.find(path);
  return found == devices_.end() ? 0 : found->second->reads;
}

std::shared_ptr<orvante::testing::PrinterPeer> FakeBluez::serialPeer() const {
  if (!loop_->isCurrent()) {
    std::shared_ptr<orvante::testing::PrinterPeer> result;
    onLoop([&] { result = serialPeer(); });
    return result;
  }
  return serialPeer_;
}

}  // namespace orvante::testing
