#pragma once
// An in-memory BLE radio: scripted peripherals with services,
// characteristics, a manufacturer name, notifications, write
// acknowledgements and failures. Every callback is delivered on the
// central's serial queue, as a real central does.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <orvante/export.hpp>
#include <orvante/platform/ble.hpp>

ORVANTE_API_BEGIN

namespace orvante::testing {

class FakeCentral;

class FakeCharacteristic final : public ble::Characteristic {
 public:
  FakeCharacteristic(ble::Uuid uuid, std::optional<Bytes> value)
      : uuid_(std::move(uuid)), value_(std::move(value)) {}
  ble::Uuid uuid() const override { return uuid_; }
  std::optional<Bytes> value() const override;
  void setValue(std::optional<Bytes> value);

 private:
  const ble::Uuid uuid_;
  mutable std::mutex mutex_;
  std::optional<Bytes> value_;
};

class FakeService final : public ble::Service {
 public:
  FakeService(ble::Uuid uuid, std::vector<std::shared_ptr<FakeCharacteristic>> characteristics)
      : uuid_(std::move(uuid)), all_(std::move(characteristics)) {}
  ble::Uuid uuid() const override { return uuid_; }
  // Empty until the characteristics were discovered.
  std::vector<std::shared_ptr<ble::Characteristic>> characteristics() const override;
  std::shared_ptr<FakeCharacteristic> find(const ble::Uuid& uuid) const;
  void markDiscovered();

 private:
  const ble::Uuid uuid_;
  const std::vector<std::shared_ptr<FakeCharacteristic>> all_;
  mutable std::mutex mutex_;
  bool discovered_ = false;
};

class FakePeripheral final : public ble::Peripheral,
                             public std::enable_shared_from_this<FakePeripheral> {
 public:
  struct Write {
    Bytes data;
    ble::WriteType type;
    ble::Uuid characteristic;
  };
  // Called on the central's queue with each write to a characteristic.
  using Responder =
      std::function<void(FakePeripheral& printer, const ble::Uuid& characteristic, ByteView data)>;

  FakePeripheral(std::string identifier, std::optional<std::string> name);
  ~FakePeripheral() override;

  // A printer with the serial service and its two characteristics, and a
  // device information service whose manufacturer name is already known.
  static std::shared_ptr<FakePeripheral> printer(std::string name,
                                                 std::string manufacturer = "Orvante Labs");

  // Scripting, before the peripheral is used.
  void setAdvertisedName(std::optional<std::string> localName);
  void addService(ble::Uuid uuid, std::vector<std::pair<ble::Uuid, std::optional<Bytes>>> chars);
  void setServiceDiscoveryError(std::optional<ble::Error> error);
  void setCharacteristicDiscoveryError(std::optional<ble::Error> error);
  void setWriteError(std::optional<ble::Error> error);
  // A peripheral that never finishes connecting.
  void setConnectable(bool connectable);
  void setResponder(Responder responder);
  // The link's ATT MTU, which bounds each write to mtu - 3 bytes; a
  // peripheral without one allows the smallest, 20.
  void setMtu(std::uint16_t mtu);

  // The printer's side of the link.
  // Sets the characteristic's value and notifies, if notifications are on.
  void notify(const ble::Uuid& characteristic, Bytes value);
  // Sets the value a read returns.
  void setValue(const ble::Uuid& characteristic, Bytes value);
  // A characteristic whose reads take the bytes waiting in it, as a serial
  // bridge's does: after a read it holds nothing until new bytes come.
  void setReadsDrain(const ble::Uuid& characteristic, bool drains);
  // The printer goes away: the central reports a disconnection.
  void dropConnection();

  // What the central did.
  std::vector<Write> writes() const;
  bool notifying(const ble::Uuid& characteristic) const;
  int reads(const ble::Uuid& characteristic) const;
  std::optional<std::string> advertisedName() const;
  ble::PeripheralDelegate* delegate() const;

  // ble::Peripheral
  std::optional<std::string> name() const override { return name_; }
  std::optional<std::string> identifier() const override { return identifier_; }
  ble::PeripheralState state() const override;
  std::vector<std::shared_ptr<ble::Service>> services() const override;
  void setDelegate(ble::PeripheralDelegate* delegate) override;
  void discoverServices() override;
  void discoverCharacteristics(const std::shared_ptr<ble::Service>& service) override;
  void readValue(const std::shared_ptr<ble::Characteristic>& characteristic) override;
  void writeValue(ByteView data, const std::shared_ptr<ble::Characteristic>& characteristic,
                  ble::WriteType type) override;
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<ble::Characteristic>& characteristic) override;
  std::size_t maximumWriteValueLength(ble::WriteType type) const override;

 private:
  friend class FakeCentral;
  std::shared_ptr<FakeCharacteristic> findCharacteristic(const ble::Uuid& uuid) const;
  // Runs f with the delegate on the central's queue.
  void post(
      std::function<void(ble::PeripheralDelegate&, const std::shared_ptr<ble::Peripheral>&)> f);
  void setState(ble::PeripheralState state);

  const std::optional<std::string> identifier_;
  const std::optional<std::string> name_;
  mutable std::mutex mutex_;
  std::weak_ptr<FakeCentral> central_;
  struct Slot;  // the delegate, safe to set while a callback is delivered
  std::unique_ptr<Slot> delegate_;
  ble::PeripheralState state_ = ble::PeripheralState::Disconnected;
  std::optional<std::string> localName_;
  std::vector<std::shared_ptr<FakeService>> services_;
  bool servicesDiscovered_ = false;
  std::optional<ble::Error> serviceError_, characteristicError_, writeError_;
  bool connectable_ = true;
  Responder responder_;
  std::optional<std::uint16_t> mtu_;
  std::vector<Write> writes_;
  std::map<std::string, bool> notifying_;
  std::map<std::string, int> reads_;
  std::map<std::string, bool> readsDrain_;
};

class FakeCentral final : public ble::Central, public std::enable_shared_from_this<FakeCentral> {
 public:
  FakeCentral(ble::CentralDelegate& delegate, std::string queueName, ble::CentralState state,
              std::vector<std::shared_ptr<FakePeripheral>> inRange, bool autoAdvertise);
  ~FakeCentral() override;

  // Changes the radio's state and tells the delegate.
  void setState(ble::CentralState state);
  // Delivers the advertisements of the peripherals in range, if scanning.
  void advertise();
  void addPeripheral(std::shared_ptr<FakePeripheral> peripheral);
  bool scanning() const;
  int scansStarted() const;
  // Waits until every callback posted so far has been delivered.
  void drain();

  // ble::Central
  ble::CentralState state() const override;
  void scanForPeripherals() override;
  void stopScan() override;
  void connect(const std::shared_ptr<ble::Peripheral>& peripheral) override;
  void cancelPeripheralConnection(const std::shared_ptr<ble::Peripheral>& peripheral) override;
  void setDelegate(ble::CentralDelegate* delegate) override;

 private:
  friend class FakePeripheral;
  friend class FakeBleRadio;
  void post(std::function<void(ble::CentralDelegate&)> f);
  void disconnected(const std::shared_ptr<FakePeripheral>& peripheral);

  mutable std::mutex mutex_;
  // The delegate and the serial queue the callbacks go through.
  struct Plumbing;
  std::unique_ptr<Plumbing> plumbing_;
  ble::CentralState state_;
  std::vector<std::shared_ptr<FakePeripheral>> inRange_;
  bool autoAdvertise_;
  bool scanning_ = false;
  int scansStarted_ = 0;
};

// The radio the centrals of a test see.
class FakeBleRadio final : public ble::CentralFactory {
 public:
  void addPeripheral(std::shared_ptr<FakePeripheral> peripheral);
  void setInitialState(ble::CentralState state);
  // Advertisements arrive as soon as a scan starts; when off, only on
  // FakeCentral::advertise().
  void setAutoAdvertise(bool automatic);
  std::shared_ptr<FakeCentral> central() const;

  std::shared_ptr<ble::Central> makeCentral(ble::CentralDelegate& delegate,
                                            const std::string& queueName) override;

 private:
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<FakePeripheral>> peripherals_;
  ble::CentralState initialState_ = ble::CentralState::PoweredOn;
  bool autoAdvertise_ = true;
  std::weak_ptr<FakeCentral> central_;
};

}  // namespace orvante::testing

ORVANTE_API_END
