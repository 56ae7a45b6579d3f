#include "serial_accessories.hpp"

#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "../../transport/socket_streams.hpp"
#include "bluez_bus.hpp"

namespace orvante::platform::bluez {
namespace {

using namespace std::chrono_literals;

const char* const kProtocol = "com.issc.datapath";
const char* const kProfilePath = "/org/orvante/serial_port";
// Paging a printer and opening its RFCOMM channel can take several seconds.
constexpr auto kConnectLimit = 30s;
// BlueZ hands the socket over before ConnectProfile returns; a little slack
// covers a daemon that answers first.
constexpr auto kHandOverLimit = 2s;

class SerialPrinter final : public Accessory {
 public:
  SerialPrinter(std::string path, std::string name, std::string address)
      : path_(std::move(path)), name_(std::move(name)), address_(std::move(address)) {}
  std::vector<std::string> protocolStrings() const override { return {kProtocol}; }
  std::string name() const override { return name_; }
  std::optional<std::string> valueForKey(const std::string& key) const override {
    if (key == "macAddress") return address_;
    return std::nullopt;
  }
  const std::string& path() const { return path_; }

 private:
  const std::string path_, name_, address_;
};

bool offersSerialPort(const Properties& device) {
  const auto uuids = property<std::vector<std::string>>(device, "UUIDs").value_or(
      std::vector<std::string>{});
  return std::any_of(uuids.begin(), uuids.end(), [](std::string uuid) {
    std::transform(uuid.begin(), uuid.end(), uuid.begin(), ::tolower);
    return uuid == kSerialPortUuid;
  });
}

}  // namespace

SerialAccessories::SerialAccessories() = default;

SerialAccessories::~SerialAccessories() {
  if (bus_) bus_->leaveEventLoop();
  profile_.reset();
  for (const auto& [device, fd] : sockets_) ::close(fd);
}

sdbus::IConnection* SerialAccessories::bus() {
  std::lock_guard lock(mutex_);
  if (!triedBus_) {
    triedBus_ = true;
    bus_ = connectSystemBus();
    if (bus_) {
      try {
        profile_ = sdbus::createObject(*bus_, kProfilePath);
        profile_->registerMethod("NewConnection")
            .onInterface(kProfile)
            .implementedAs([this](const sdbus::ObjectPath& device, sdbus::UnixFd fd,
                                  const Properties&) { newConnection(device, fd.release()); });
        profile_->registerMethod("RequestDisconnection")
            .onInterface(kProfile)
            .implementedAs([](const sdbus::ObjectPath&) {});
        profile_->registerMethod("Release").onInterface(kProfile).implementedAs([] {});
        profile_->finishRegistration();
        bus_->enterEventLoopAsync();
      } catch (const sdbus::Error&) {
        profile_.reset();
        bus_.reset();
      }
    }
  }
  return bus_.get();
}

void SerialAccessories::newConnection(const std::string& device, int fd) {
  {
    std::lock_guard lock(mutex_);
    auto& slot = sockets_[device];
    if (slot > 0) ::close(slot);
    slot = fd;
  }
  arrived_.notify_all();
}

bool SerialAccessories::registerProfile() {
  {
    std::lock_guard lock(mutex_);
    if (registered_) return true;
  }
  try {
    auto manager = sdbus::createProxy(*bus_, kService, "/org/bluez");
    Properties options{{"Role", sdbus::Variant(std::string("client"))},
                       {"Name", sdbus::Variant(std::string("Orvante serial port"))}};
    manager->callMethod("RegisterProfile")
        .onInterface(kProfileManager)
        .withTimeout(kConnectLimit)
        .withArguments(sdbus::ObjectPath(kProfilePath), std::string(kSerialPortUuid), options);
  } catch (const sdbus::Error& error) {
    if (error.getName() != "org.bluez.Error.AlreadyExists") return false;
  }
  std::lock_guard lock(mutex_);
  registered_ = true;
  return true;
}

std::vector<std::shared_ptr<Accessory>> SerialAccessories::connectedAccessories() {
  std::vector<std::shared_ptr<Accessory>> printers;
  auto* connection = bus();
  if (!connection) return printers;
  const auto objects = managedObjects(*connection);
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
  auto printer = std::dynamic_pointer_cast<SerialPrinter>(accessory);
  if (!printer || protocol != kProtocol || !bus() || !registerProfile()) return nullptr;
  {
    // A socket left from an earlier connection is stale.
    std::lock_guard lock(mutex_);
    if (auto old = sockets_.find(printer->path()); old != sockets_.end()) {
      ::close(old->second);
      sockets_.erase(old);
    }
  }
  try {
    auto device = sdbus::createProxy(*bus_, kService, printer->path());
    device->callMethod("ConnectProfile")
        .onInterface(kDevice)
        .withTimeout(kConnectLimit)
        .withArguments(std::string(kSerialPortUuid));
  } catch (const sdbus::Error&) {
    return nullptr;
  }
  std::unique_lock lock(mutex_);
  if (!arrived_.wait_for(lock, kHandOverLimit, [&] { return sockets_.count(printer->path()); })) {
    return nullptr;
  }
  const int fd = sockets_[printer->path()];
  sockets_.erase(printer->path());
  lock.unlock();
  return std::make_shared<AccessorySession>(accessory, protocol,
                                            transport::adoptSocketStreams(fd));
}

}  // namespace orvante::platform::bluez
