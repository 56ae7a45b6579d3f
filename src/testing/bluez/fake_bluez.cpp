#include "fake_bluez.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <thread>

namespace orvante::testing {
namespace {

const char* const kAdapter = "org.bluez.Adapter1";
const char* const kDevice = "org.bluez.Device1";
const char* const kGattService = "org.bluez.GattService1";
const char* const kGattCharacteristic = "org.bluez.GattCharacteristic1";
const char* const kProfileManager = "org.bluez.ProfileManager1";
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

class FakeBluez::Timer {
 public:
  explicit Timer(testing::bluez::BusLoop& loop) : loop_(loop), thread_([this] { run(); }) {}
  ~Timer() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  void at(std::chrono::steady_clock::time_point when, std::function<void()> task) {
    {
      std::lock_guard lock(mutex_);
      tasks_.emplace(when, std::move(task));
    }
    changed_.notify_all();
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
      if (tasks_.empty()) {
        changed_.wait(lock);
        continue;
      }
      const auto first = tasks_.begin();
      if (changed_.wait_until(lock, first->first) == std::cv_status::no_timeout) continue;
      if (std::chrono::steady_clock::now() < first->first) continue;
      auto task = std::move(first->second);
      tasks_.erase(first);
      loop_.post(std::move(task));
    }
  }

  testing::bluez::BusLoop& loop_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> tasks_;
  bool stopping_ = false;
  std::thread thread_;
};

struct FakeBluez::Device {
  std::vector<Write> writes;
  bool notifying = false;
  int connects = 0;
  int reads = 0;
  std::map<std::string, std::string> failing;
};

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

  manager_ = sdbus::createObject(bus, "/org/bluez");
  manager_->registerMethod("RegisterProfile")
      .onInterface(kProfileManager)
      .implementedAs([this](const sdbus::ObjectPath& path, const std::string&, const Properties&) {
        if (!profileOwner_.empty()) {
          throw sdbus::Error("org.bluez.Error.AlreadyExists", "Already Exists");
        }
        profileOwner_ = manager_->getCurrentlyProcessedMessage()->getSender();
        profilePath_ = path;
      });
  manager_->registerMethod("UnregisterProfile")
      .onInterface(kProfileManager)
      .implementedAs([this](const sdbus::ObjectPath&) {
        profileOwner_.clear();
      });
  manager_->finishRegistration();

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

// Characteristics sit two levels below their device.
std::string FakeBluez::characteristicDevice(const std::string& path) const {
  auto service = path.substr(0, path.rfind('/'));
  return service.substr(0, service.rfind('/'));
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

void FakeBluez::registerAdapter(const std::string& path) {
  auto& adapter = *exported_[path];
  adapter.registerMethod("StartDiscovery").onInterface(kAdapter).implementedAs([this] {
    if (discovering_) {
      throw sdbus::Error("org.bluez.Error.InProgress", "Operation already in progress");
    }
    discovering_ = true;
    setProperty(kAdapterPath, kAdapter, "Discovering", sdbus::Variant(true));
    // Printers in range show up once the radio listens, after the reply.
    loop_->post([this] {
      for (const auto& later : laterDevices_) {
        std::vector<std::string> paths;
        for (const auto& [path, interfaces] : objects_) {
          if (path == later || path.rfind(later + "/", 0) == 0) paths.push_back(path);
        }
        for (const auto& path : paths) publish(path);
      }
      laterDevices_.clear();
    });
  });
  adapter.registerMethod("StopDiscovery").onInterface(kAdapter).implementedAs([this] {
    if (!discovering_) throw sdbus::Error("org.bluez.Error.Failed", "No discovery started");
    discovering_ = false;
    setProperty(kAdapterPath, kAdapter, "Discovering", sdbus::Variant(false));
  });
}

void FakeBluez::registerDevice(const std::string& path) {
  auto& object = *exported_[path];
  object.registerMethod("Connect").onInterface(kDevice).implementedAs([this, path] {
    throwIfFailing(path, "Connect");
    ++device(path).connects;
    setProperty(path, kDevice, "Connected", sdbus::Variant(true));
    // BlueZ resolves the services after the link is up.
    loop_->post([this, path] {
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
        auto& properties = objects_[path][kGattCharacteristic];
        ++device(owner).reads;
        if (!properties.count("Value")) return std::vector<std::uint8_t>{};
        auto value = properties["Value"].get<std::vector<std::uint8_t>>();
        if (path == owner + "/service0010/char0011") {
          properties["Value"] = sdbus::Variant(std::vector<std::uint8_t>{});
        }
        return value;
      });
  object.registerMethod("WriteValue")
      .onInterface(kGattCharacteristic)
      .implementedAs([this, path](sdbus::Result<>&& result, const std::vector<std::uint8_t>& data,
                                  const Properties& options) {
        const auto owner = characteristicDevice(path);
        auto answer = std::make_shared<sdbus::Result<>>(std::move(result));
        std::string type;
        try {
          throwIfFailing(owner, "WriteValue");
          auto& state = objects_[owner][kDevice];
          if (!state["Connected"].get<bool>()) {
            throw sdbus::Error("org.bluez.Error.NotConnected", "Not Connected");
          }
          auto found = options.find("type");
          if (found != options.end()) type = found->second.get<std::string>();
        } catch (const sdbus::Error& error) {
          answer->returnError(error);
          return;
        }
        device(owner).writes.push_back({data, type});
        answerWrite(std::move(answer), owner, data, type == "request");
      });
  object.registerMethod("StartNotify").onInterface(kGattCharacteristic).implementedAs([this, path] {
    const auto owner = characteristicDevice(path);
    throwIfFailing(owner, "StartNotify");
    device(owner).notifying = true;
  });
  object.registerMethod("StopNotify").onInterface(kGattCharacteristic).implementedAs([this, path] {
    device(characteristicDevice(path)).notifying = false;
  });
}

// Answers the write at once, or one connection interval after the last
// acknowledged write was answered; the printer takes the bytes after that.
void FakeBluez::answerWrite(std::shared_ptr<sdbus::Result<>> result, const std::string& owner,
                            std::vector<std::uint8_t> data, bool acknowledged) {
  // The responder is looked up when it is due, so one cleared meanwhile is not called.
  auto answer = [this, result = std::move(result), owner, data = std::move(data)] {
    result->returnResults();
    loop_->post([this, owner, data] {
      auto responder = responder_;
      if (responder) responder(*this, owner, data);
    });
  };
  if (!acknowledged || connectionInterval_.count() == 0) return answer();
  const auto now = std::chrono::steady_clock::now();
  lastAnswer_ = std::max(now, lastAnswer_) + connectionInterval_;
  timer_->at(lastAnswer_, std::move(answer));
}

void FakeBluez::connectProfile(const std::string& path) {
  std::string owner, profile;
  orvante::testing::PrinterPeer::Responder responder;
  {
    owner = profileOwner_;
    profile = profilePath_;
    responder = serialResponder_;
  }
  if (owner.empty()) throw sdbus::Error("org.bluez.Error.NotAvailable", "No profile registered");
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    throw sdbus::Error("org.bluez.Error.Failed", "No socket");
  }
  auto peer = std::make_shared<orvante::testing::PrinterPeer>(ends[1], std::move(responder));
  {
    serialPeer_ = peer;
  }
  // BlueZ hands the socket over before ConnectProfile returns; here it
  // follows the reply at once, which a client must take as well.
  sdbus::UnixFd handed(ends[0], sdbus::adopt_fd);
  profileClient_ = sdbus::createProxy(loop_->bus(), owner, profile);
  profileClient_->callMethodAsync("NewConnection")
      .onInterface("org.bluez.Profile1")
      .withTimeout(std::chrono::seconds(10))
      .withArguments(sdbus::ObjectPath(path), handed, Properties{})
      .uponReplyInvoke([](const sdbus::Error*) {});
}

void FakeBluez::setProperty(const std::string& path, const std::string& interface,
                            const std::string& name, const sdbus::Variant& value) {
  objects_[path][interface][name] = value;
  if (auto object = exported_.find(path); object != exported_.end()) {
    object->second->emitPropertiesChangedSignal(interface, {name});
  }
}

std::string FakeBluez::addPrinter(const std::string& address, std::optional<std::string> name,
                                  const std::string& manufacturer, bool knownAtStart) {
  if (!loop_->isCurrent()) {
    std::string made;
    onLoop([&] { made = addPrinter(address, name, manufacturer, knownAtStart); });
    return made;
  }
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
  // A printer not yet heard is put on the bus once a discovery starts.
  if (!knownAtStart) laterDevices_.push_back(path);
  exportObject(path, {{kDevice, properties}}, knownAtStart);
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
                        {"Flags", sdbus::Variant(flags)},
                        {"MTU", sdbus::Variant(std::uint16_t{23})},
                        {"Value", sdbus::Variant(std::vector<std::uint8_t>{})}}}};
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
  if (!loop_->isCurrent()) {
    std::string made;
    onLoop([&] { made = addSerialPrinter(address, alias, paired); });
    return made;
  }
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
