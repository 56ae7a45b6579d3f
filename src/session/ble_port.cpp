// The BLE link: scan, connect, discovery of the printer's serial service,
// 20-byte writes and the replies that arrive by notification. The public
// operations run on the caller's thread, the delegate operations on the
// central's queue "myCentralQueue".

#include <algorithm>
#include <atomic>

#include <orvante/ble_globals.hpp>
#include <orvante/log.hpp>
#include <orvante/session.hpp>

#include "../commands/text_encoding.hpp"
#include "../transport/ble_printer_profile.hpp"
#include "describe.hpp"
#include "internals.hpp"

extern "C" {
std::int32_t BleReceivedLen = 0;
std::int32_t countPacket = 0;
}

namespace ble = orvante::ble;
using orvante::describe;
using orvante::log;

namespace {

using namespace orvante::transport::printer_profile;

const char* const kSlowBridgeMaker = "Lantronix";

constexpr std::size_t kPacket = 20;
constexpr double kPacketPause = 0.1;

}  // namespace

std::vector<std::shared_ptr<ble::Peripheral>> ORVANTESDK::searchBLEDevice(std::int64_t seconds) {
  BLEDeviceList = std::vector<std::shared_ptr<ble::Peripheral>>{};
  BLE_StartScan();
  pause(static_cast<double>(seconds));
  // The scan's stop timer fires once the interval has passed, which is now.
  BLE_StopScan();
  return BLEDeviceList.load().value_or(std::vector<std::shared_ptr<ble::Peripheral>>{});
}

void ORVANTESDK::BLE_StartScan() {
  if (auto central = CM()) central->scanForPeripherals();
}

void ORVANTESDK::BLE_StopScan() {
  if (auto central = CM()) central->stopScan();
}

std::int64_t ORVANTESDK::openport_ble(const std::shared_ptr<ble::Peripheral>& peripheral) {
  BLEPortEnable = 0;
  if (auto central = CM(); central && peripheral) central->connect(peripheral);
  connectPeripheral = peripheral;
  log("Connect to " + describe(peripheral ? peripheral->name() : std::nullopt));
  // Waits until discovery sets the flag; no time limit, as published. The
  // central's callbacks wake the wait.
  internals_->waitUntil([&] { return BLEPortEnable.load() != 0; });
  if (BLEPortEnable == 1) return 1;
  BLEPortEnable = 0;
  return -1;
}

std::int64_t ORVANTESDK::openport_ble(const std::shared_ptr<ble::Peripheral>& peripheral,
                                      double delay) {
  const auto result = openport_ble(peripheral);
  if (result == 1) pause(delay);
  return result;
}

void ORVANTESDK::BLE_Connect(const std::shared_ptr<ble::Peripheral>& peripheral) {
  IsXpico = false;
  if (auto central = CM(); central && peripheral) central->connect(peripheral);
  connectPeripheral = peripheral;
  log("Connect to " + describe(peripheral ? peripheral->name() : std::nullopt));
}

void ORVANTESDK::BLE_Disconnect() {
  auto peripheral = connectPeripheral.load();
  if (!peripheral) {
    log("connectPeripheral == NULL");
    return;
  }
  if (peripheral->state() != ble::PeripheralState::Connected) return;
  if (auto central = CM()) central->cancelPeripheralConnection(peripheral);
  log("disconnect-1");
}

void ORVANTESDK::BLE_WriteData(orvante::ByteView data) {
  auto peripheral = connectPeripheral.load();
  auto characteristic = cbWirteCharacteristic.load();
  const bool slowBridge = IsXpico;
  if (peripheral && characteristic) {
    peripheral->writeValue(
        data, characteristic,
        slowBridge ? ble::WriteType::WithoutResponse : ble::WriteType::WithResponse);
  }
  if (slowBridge) pause(kPacketPause);
  log("Write Data to " + describe(peripheral ? peripheral->name() : std::nullopt));
}

std::int32_t ORVANTESDK::BLE_OutStream(orvante::ByteView data) {
  BLEReceivebuffer = orvante::Bytes{};
  std::size_t offset = 0;
  do {
    const std::size_t count = std::min(kPacket, data.size() - offset);
    BLE_WriteData(data.subspan(offset, count));
    offset += count;
  } while (offset < data.size());
  return 1;
}

void ORVANTESDK::centralManagerDidUpdateState(ble::Central& central) {
  static const char* const kNames[] = {"Unknown\n",      "Resetting\n",  "Unsupported\n",
                                       "Unauthorized\n", "PoweredOff\n", "PoweredOn\n"};
  const auto state = static_cast<std::int64_t>(central.state());
  log(std::string("UpdateState:") + (state >= 0 && state <= 5 ? kNames[state] : "none\n"));
}

void ORVANTESDK::centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>& peripheral,
                                const ble::AdvertisementData& advertisementData, std::int64_t) {
  const auto& localName = advertisementData.localName;
  if (!localName || localName->empty()) return;
  log("localName:" + *localName);
  BLEDeviceList.with([&](auto& list) {
    if (list) list->push_back(peripheral);
  });
}

void ORVANTESDK::centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>& peripheral) {
  log("connected");
  log("Connect To Peripheral with name: " + describe(peripheral->name()) +
      "\nwith UUID:" + describe(peripheral->identifier()) + "\n");
  peripheral->setDelegate(&internals_->delegates);
  peripheral->discoverServices();
}

void ORVANTESDK::centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>&,
                                const ble::Error*) {
  BLEPortEnable = 0;
  log("disconnect-2");
}

void ORVANTESDK::peripheral(const std::shared_ptr<ble::Peripheral>& peripheral,
                            const ble::Error* error) {
  log("didDiscoverServices:\n");
  if (!peripheral->identifier()) return;
  if (error) {
    log("Service discovery was unsuccessfull !\n");
    BLEPortEnable = 0;
    return;
  }
  const auto services = peripheral->services();
  log("====" + describe(peripheral->name()) + "\n");
  log("=========== " + std::to_string(services.size()) + " of service for UUID " +
      describe(peripheral->identifier()) + " ===========\n");
  for (const auto& service : services) {
    if (service->uuid().text() == kDeviceInformation) peripheral->discoverCharacteristics(service);
  }
  for (const auto& service : services) {
    if (!(service->uuid() == kSerialService)) continue;
    log("Service found with UUID: " + service->uuid().text() + "\n");
    cbService = service;
    peripheral->discoverCharacteristics(service);
    break;
  }
}

void ORVANTESDK::peripheral(const std::shared_ptr<ble::Peripheral>& peripheral,
                            const std::shared_ptr<ble::Service>& service, const ble::Error* error) {
  if (error) {
    log("Characteristic discorvery unsuccessfull !\n");
    BLEPortEnable = 0;
    return;
  }
  const auto characteristics =
      service ? service->characteristics() : std::vector<std::shared_ptr<ble::Characteristic>>{};
  log("=========== " + std::to_string(characteristics.size()) + " Characteristics of " +
      (service ? service->uuid().text() : "(null)") + " service ");
  const auto services = peripheral->services();
  if (!service || service->uuid().isNull() || services.empty() ||
      services.back()->uuid().isNull()) {
    return;
  }

  if (service->uuid().text() == kDeviceInformation) {
    for (const auto& characteristic : characteristics) {
      if (!(characteristic->uuid() == kManufacturerName)) continue;
      peripheral->readValue(characteristic);
      // The read completes later; the value present now, if any, is used.
      const auto value = characteristic->value();
      const auto maker = value ? orvante::decodeUtf8(*value) : std::nullopt;
      log("Manufacture: " + describe(maker) + "\n");
      IsXpico = maker == kSlowBridgeMaker;
    }
  }

  if (service->uuid() == kSerialService) {
    for (const auto& characteristic : characteristics) {
      log(" " + characteristic->uuid().text() + " \n");
      const bool receive = characteristic->uuid() == kReceive;
      const bool write = characteristic->uuid() == kWrite;
      if (IsXpico) {
        if (receive) cbReadCharacteristic = characteristic;
        if (write) cbWirteCharacteristic = characteristic;
      } else {
        if (receive) {
          peripheral->setNotifyValue(true, characteristic);
          log("=== Finished set notification ===\n");
        }
        if (write) cbWirteCharacteristic = characteristic;
      }
    }
    BLEPortEnable = 1;
  }
}

void ORVANTESDK::peripheralDidUpdateValueForCharacteristic(
    const std::shared_ptr<ble::Peripheral>&,
    const std::shared_ptr<ble::Characteristic>& characteristic, const ble::Error*) {
  if (!(characteristic->uuid() == kReceive)) return;
  const auto value = characteristic->value().value_or(orvante::Bytes{});
  std::atomic_ref(BleReceivedLen).store(static_cast<std::int32_t>(value.size()));
  BLEReceivebuffer.with([&](std::optional<orvante::Bytes>& received) {
    if (received) received->insert(received->end(), value.begin(), value.end());
  });
}

void ORVANTESDK::peripheralDidWriteValueForCharacteristic(
    const std::shared_ptr<ble::Peripheral>&, const std::shared_ptr<ble::Characteristic>&,
    const ble::Error* error) {
  log(error ? "Write Error:" + error->description : std::string("Write Success"));
}
