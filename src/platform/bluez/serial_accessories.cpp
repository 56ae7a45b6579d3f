#include "serial_accessories.hpp"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <future>

#include "../../transport/accessory_profile.hpp"
#include "../../transport/link_streams.hpp"
#include "bluez_bus.hpp"
#include "shared_bus.hpp"

namespace orvante::platform::bluez {

namespace {

using namespace std::chrono_literals;

const char* const kProfilePath = "/org/orvante/serial_port";
constexpr auto kListLimit = 5s;
// Paging a printer and opening its RFCOMM channel can take several seconds.
constexpr auto kConnectLimit = 30s;
// BlueZ hands the socket over before ConnectProfile returns; a little slack
// covers a daemon that answers first.
constexpr auto kHandOverLimit = 2s;

class SerialPrinter final : public Accessory {
 public:
  SerialPrinter(std::string path, std::string name, std::string address)
      : path_(std::move(path)), name_(std::move(name)), address_(std::move(address)) {}
  std::vector<std::string> protocolStrings() const override { return {transport::accessory_profile::kDataPathProtocol}; }
  std::string name() const override { return name_; }
  std::optional<std::string> valueForKey(const std::string& key) const override {
    if (key == transport::accessory_profile::kMacAddressKey) return address_;
    return std::nullopt;
  }
  const std::string& path() const { return path_; }

 private:
  const std::string path_, name_, address_;
};

bool offersSerialPort(const Properties& device) {
  const auto uuids =
      property<std::vector<std::string>>(device, "UUIDs").value_or(std::vector<std::string>{});
  return std::any_of(uuids.begin(), uuids.end(), [](std::string uuid) {
    std::transform(uuid.begin(), uuid.end(), uuid.begin(), ::tolower);
    return uuid == kSerialPortUuid;
  });
}

// The error a call ended with: empty on success, none when no reply came.
using Outcome = std::optional<std::string>;

Outcome waitFor(const std::shared_ptr<std::promise<std::string>>& reply,
                std::chrono::seconds limit) {
  auto future = reply->get_future();
  if (future.wait_for(limit) != std::future_status::ready) return std::nullopt;
  return future.get();
}

}  // namespace

// The Profile1 object on one bus (a path registers once per connection),
// shared by every manager on that bus, and the sockets BlueZ handed it.
class SerialProfile {
 public:
  explicit SerialProfile(std::shared_ptr<SharedBus> bus) : bus_(std::move(bus)) {}

  ~SerialProfile() {
    bus_->run([this] {
      proxies_.clear();
      object_.reset();
    });
    for (const auto& [device, fd] : sockets_) ::close(fd);
  }

  static std::shared_ptr<SerialProfile> on(const std::shared_ptr<SharedBus>& bus) {
    static std::mutex mutex;
    static auto* profiles = new std::map<SharedBus*, std::weak_ptr<SerialProfile>>;
    std::lock_guard lock(mutex);
    if (auto held = (*profiles)[bus.get()].lock()) return held;
    auto profile = std::make_shared<SerialProfile>(bus);
    profile->exportObject();
    (*profiles)[bus.get()] = profile;
    return profile;
  }

  SharedBus& bus() { return *bus_; }

  // On the bus's thread.
  sdbus::IProxy& proxy(const std::string& path) {
    auto& slot = proxies_[path];
    if (!slot) slot = sdbus::createProxy(bus_->connection(), kService, path);
    return *slot;
  }

  bool registerWithBluez() {
    {
      std::lock_guard lock(mutex_);
      if (registered_) return true;
    }
    auto reply = std::make_shared<std::promise<std::string>>();
    bus_->post([this, reply] {
      Properties options{{"Role", sdbus::Variant(std::string("client"))},
                         {"Name", sdbus::Variant(std::string("Orvante serial port"))}};
      proxy("/org/bluez")
          .callMethodAsync("RegisterProfile")
          .onInterface(kProfileManager)
          .withTimeout(kConnectLimit)
          .withArguments(sdbus::ObjectPath(kProfilePath), std::string(kSerialPortUuid), options)
          .uponReplyInvoke([reply](const sdbus::Error* error) {
            reply->set_value(error ? error->getName() : "");
          });
    });
    const auto outcome = waitFor(reply, kConnectLimit);
    if (!outcome || (!outcome->empty() && *outcome != "org.bluez.Error.AlreadyExists")) {
      return false;
    }
    std::lock_guard lock(mutex_);
    registered_ = true;
    return true;
  }

  // A socket from before this connection is stale.
  void forget(const std::string& device) {
    std::lock_guard lock(mutex_);
    if (auto old = sockets_.find(device); old != sockets_.end()) {
      ::close(old->second);
      sockets_.erase(old);
    }
  }

  int take(const std::string& device) {
    std::unique_lock lock(mutex_);
    if (!arrived_.wait_for(lock, kHandOverLimit, [&] { return sockets_.count(device) > 0; })) {
      return -1;
    }
    const int fd = sockets_[device];
    sockets_.erase(device);
    return fd;
  }

 private:
  void exportObject() {
    bus_->run([this] {
      object_ = sdbus::createObject(bus_->connection(), kProfilePath);
      object_->registerMethod("NewConnection")
          .onInterface(kProfile)
          .implementedAs([this](const sdbus::ObjectPath& device, sdbus::UnixFd fd,
                                const Properties&) { arrived(device, fd.release()); });
      object_->registerMethod("RequestDisconnection")
          .onInterface(kProfile)
          .implementedAs([](const sdbus::ObjectPath&) {});
      object_->registerMethod("Release").onInterface(kProfile).implementedAs([] {});
      object_->finishRegistration();
    });
  }

  void arrived(const std::string& device, int fd) {
    {
      std::lock_guard lock(mutex_);
      auto& slot = sockets_[device];
      if (slot > 0) ::close(slot);
      slot = fd;
    }
    arrived_.notify_all();
  }

  const std::shared_ptr<SharedBus> bus_;
  // On the bus's thread.
  std::unique_ptr<sdbus::IObject> object_;
  std::map<std::string, std::unique_ptr<sdbus::IProxy>> proxies_;
  std::mutex mutex_;  // the three below
  std::condition_variable arrived_;
  bool registered_ = false;
  // Sockets BlueZ handed over, by device path, not yet taken by a session.
  std::map<std::string, int> sockets_;
};

SerialAccessories::SerialAccessories() {
  makeVariantsOutliveThisBackend();
}

SerialAccessories::~SerialAccessories() = default;

std::shared_ptr<SerialProfile> SerialAccessories::profile() {
  std::lock_guard lock(mutex_);
  if (!profile_) {
    if (auto bus = SharedBus::acquire()) profile_ = SerialProfile::on(bus);
  }
  return profile_;
}

std::vector<std::shared_ptr<Accessory>> SerialAccessories::connectedAccessories() {
  std::vector<std::shared_ptr<Accessory>> printers;
  auto serial = profile();
  if (!serial) return printers;
  auto reply = std::make_shared<std::promise<std::optional<ManagedObjects>>>();
  serial->bus().post([serial, reply] {
    serial->proxy("/")
        .callMethodAsync("GetManagedObjects")
        .onInterface(kObjectManager)
        .withTimeout(kListLimit)
        .uponReplyInvoke([reply](const sdbus::Error* error, ManagedObjects objects) {
          reply->set_value(error ? std::nullopt : std::optional(std::move(objects)));
        });
  });
  auto future = reply->get_future();
  if (future.wait_for(kListLimit + 1s) != std::future_status::ready) return printers;
  const auto objects = future.get();
  if (!objects) return printers;
  for (const auto& [path, interfaces] : *objects) {
    auto device = interfaces.find(kDevice);
    if (device == interfaces.end()) continue;
    const auto& properties = device->second;
    if (!property<bool>(properties, "Paired").value_or(false) || !offersSerialPort(properties)) {
      continue;
    }
    const auto address = property<std::string>(properties, "Address").value_or("");
    const auto name = property<std::string>(properties, "Alias")
                          .value_or(property<std::string>(properties, "Name").value_or(address));
    printers.push_back(std::make_shared<SerialPrinter>(path, name, address));
  }
  return printers;
}

std::shared_ptr<AccessorySession> SerialAccessories::openSession(
    const std::shared_ptr<Accessory>& accessory, const std::string& protocol) {
  if (protocol != transport::accessory_profile::kDataPathProtocol) return nullptr;
  const int fd = connectSocket(accessory);
  if (fd < 0) return nullptr;
  return std::make_shared<AccessorySession>(accessory, protocol, transport::adoptSocketStreams(fd));
}

int SerialAccessories::connectSocket(const std::shared_ptr<Accessory>& accessory) {
  auto printer = std::dynamic_pointer_cast<SerialPrinter>(accessory);
  auto serial = profile();
  if (!printer || !serial || !serial->registerWithBluez()) return -1;
  serial->forget(printer->path());
  auto reply = std::make_shared<std::promise<std::string>>();
  serial->bus().post([serial, reply, path = printer->path()] {
    serial->proxy(path)
        .callMethodAsync("ConnectProfile")
        .onInterface(kDevice)
        .withTimeout(kConnectLimit)
        .withArguments(std::string(kSerialPortUuid))
        .uponReplyInvoke([reply](const sdbus::Error* error) {
          reply->set_value(error ? error->getName() : "");
        });
  });
  const auto outcome = waitFor(reply, kConnectLimit + 1s);
  if (!outcome || !outcome->empty()) return -1;
  return serial->take(printer->path());
}

}  // namespace orvante::platform::bluez
