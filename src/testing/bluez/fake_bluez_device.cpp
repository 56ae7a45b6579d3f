// org.bluez.Device1 of the stand-in: a BLE printer with its GATT objects,
// connecting and dropping the link.

#include "fake_bluez.hpp"
#include "fake_bluez_model.hpp"

namespace orvante::testing {

using namespace fake_bluez;

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

}  // namespace orvante::testing
