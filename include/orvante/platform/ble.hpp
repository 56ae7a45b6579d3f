#pragma once
// The BLE central seam: scan, connect, discover, read, write with or
// without response, notifications and cancel, with every callback delivered
// on one serial thread named by the session ("myCentralQueue").

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orvante/bytes.hpp>
#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante::ble {

// A BLE UUID. Short forms ("180A") and full forms of the Bluetooth base UUID
// compare equal; comparison ignores case.
class Uuid {
 public:
  Uuid() = default;
  Uuid(std::string_view text);
  Uuid(const char* text) : Uuid(std::string_view(text)) {}

  bool isNull() const { return text_.empty(); }
  // The canonical text: "180A" for a 16-bit UUID of the base range, the
  // full upper-case form otherwise.
  const std::string& text() const { return text_; }
  bool operator==(const Uuid& other) const;

 private:
  std::array<std::uint8_t, 16> bytes_{};
  bool parsed_ = false;
  std::string text_;
};

enum class CentralState : std::int64_t {
  Unknown = 0,
  Resetting = 1,
  Unsupported = 2,
  Unauthorized = 3,
  PoweredOff = 4,
  PoweredOn = 5,
};

enum class PeripheralState : std::int64_t {
  Disconnected = 0,
  Connecting = 1,
  Connected = 2,
  Disconnecting = 3,
};

enum class WriteType : std::int64_t { WithResponse = 0, WithoutResponse = 1 };

struct Error {
  std::int64_t code = 0;
  std::string description;
};

struct AdvertisementData {
  std::optional<std::string> localName;
};

class Characteristic {
 public:
  virtual ~Characteristic() = default;
  virtual Uuid uuid() const = 0;
  // The last value read or notified; none before the first.
  virtual std::optional<Bytes> value() const = 0;
};

class Service {
 public:
  virtual ~Service() = default;
  virtual Uuid uuid() const = 0;
  // Filled once the characteristics were discovered.
  virtual std::vector<std::shared_ptr<Characteristic>> characteristics() const = 0;
};

class Peripheral;

class PeripheralDelegate {
 public:
  virtual ~PeripheralDelegate() = default;
  // peripheral:didDiscoverServices:
  virtual void peripheral(const std::shared_ptr<Peripheral>& peripheral, const Error* error) = 0;
  // peripheral:didDiscoverCharacteristicsForService:error:
  virtual void peripheral(const std::shared_ptr<Peripheral>& peripheral,
                          const std::shared_ptr<Service>& service, const Error* error) = 0;
  virtual void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<Peripheral>& peripheral,
      const std::shared_ptr<Characteristic>& characteristic, const Error* error) = 0;
  virtual void peripheralDidWriteValueForCharacteristic(
      const std::shared_ptr<Peripheral>& peripheral,
      const std::shared_ptr<Characteristic>& characteristic, const Error* error) = 0;
};

class Peripheral {
 public:
  virtual ~Peripheral() = default;
  virtual std::optional<std::string> name() const = 0;
  // The platform's identifier of the peripheral, as text.
  virtual std::optional<std::string> identifier() const = 0;
  virtual PeripheralState state() const = 0;
  virtual std::vector<std::shared_ptr<Service>> services() const = 0;
  // Callbacks go to the delegate on the central's queue. Clearing the
  // delegate waits for a callback in progress on another thread.
  virtual void setDelegate(PeripheralDelegate* delegate) = 0;
  virtual void discoverServices() = 0;
  virtual void discoverCharacteristics(const std::shared_ptr<Service>& service) = 0;
  virtual void readValue(const std::shared_ptr<Characteristic>& characteristic) = 0;
  virtual void writeValue(ByteView data, const std::shared_ptr<Characteristic>& characteristic,
                          WriteType type) = 0;
  virtual void setNotifyValue(bool enabled,
                              const std::shared_ptr<Characteristic>& characteristic) = 0;
  // The most bytes one write of that type may carry: the link's ATT MTU
  // less the 3 bytes of the write's header. 20, the payload of the
  // smallest MTU, when the platform does not tell.
  virtual std::size_t maximumWriteValueLength(WriteType type) const {
    (void)type;
    return kSmallestWriteValueLength;
  }
  static constexpr std::size_t kSmallestWriteValueLength = 20;
};

class Central;

class CentralDelegate {
 public:
  virtual ~CentralDelegate() = default;
  virtual void centralManagerDidUpdateState(Central& central) = 0;
  // centralManager:didDiscoverPeripheral:advertisementData:RSSI:
  virtual void centralManager(Central& central, const std::shared_ptr<Peripheral>& peripheral,
                              const AdvertisementData& advertisementData, std::int64_t RSSI) = 0;
  // centralManager:didConnectPeripheral:
  virtual void centralManager(Central& central, const std::shared_ptr<Peripheral>& peripheral) = 0;
  // centralManager:didDisconnectPeripheral:error:
  virtual void centralManager(Central& central, const std::shared_ptr<Peripheral>& peripheral,
                              const Error* error) = 0;
};

class Central {
 public:
  virtual ~Central() = default;
  virtual CentralState state() const = 0;
  virtual void scanForPeripherals() = 0;
  virtual void stopScan() = 0;
  virtual void connect(const std::shared_ptr<Peripheral>& peripheral) = 0;
  virtual void cancelPeripheralConnection(const std::shared_ptr<Peripheral>& peripheral) = 0;
  // Clearing the delegate waits for a callback in progress on another
  // thread; no callback follows.
  virtual void setDelegate(CentralDelegate* delegate) = 0;
};

class CentralFactory {
 public:
  virtual ~CentralFactory() = default;
  // A central reporting to the delegate on a serial thread of that name.
  virtual std::shared_ptr<Central> makeCentral(CentralDelegate& delegate,
                                               const std::string& queueName) = 0;
};

}  // namespace orvante::ble

ORVANTE_API_END
