#include <orvante/testing/fake_ble.hpp>

#include "../transport/delegate_slot.hpp"
#include "../transport/serial_queue.hpp"

#include <atomic>
#include <cstdio>

namespace orvante::testing {
namespace {

const ble::Uuid kDeviceInformation("180A");
const ble::Uuid kManufacturerName("2A29");
const ble::Uuid kSerialService("49535343-FE7D-4AE5-8FA9-9FAFD205E455");
const ble::Uuid kReceive("49535343-1E4D-4BD9-BA61-23C647249616");
const ble::Uuid kWrite("49535343-8841-43F4-A8D4-ECBE34729BB3");

}  // namespace

// --- characteristics and services ------------------------------------------

std::optional<Bytes> FakeCharacteristic::value() const {
  std::lock_guard lock(mutex_);
  return value_;
}

void FakeCharacteristic::setValue(std::optional<Bytes> value) {
  std::lock_guard lock(mutex_);
  value_ = std::move(value);
}

std::vector<std::shared_ptr<ble::Characteristic>> FakeService::characteristics() const {
  std::lock_guard lock(mutex_);
  if (!discovered_) return {};
  return {all_.begin(), all_.end()};
}

std::shared_ptr<FakeCharacteristic> FakeService::find(const ble::Uuid& uuid) const {
  for (const auto& characteristic : all_) {
    if (characteristic->uuid() == uuid) return characteristic;
  }
  return nullptr;
}

void FakeService::markDiscovered() {
  std::lock_guard lock(mutex_);
  discovered_ = true;
}

// --- peripheral --------------------------------------------------------------

struct FakePeripheral::Slot : transport::DelegateSlot<ble::PeripheralDelegate> {};

struct FakeCentral::Plumbing {
  Plumbing(ble::CentralDelegate& delegate, std::string queueName)
      : delegate(&delegate), queue(std::move(queueName)) {}
  transport::DelegateSlot<ble::CentralDelegate> delegate;
  transport::SerialQueue queue;
};

FakePeripheral::FakePeripheral(std::string identifier, std::optional<std::string> name)
    : identifier_(std::move(identifier)),
      name_(name),
      delegate_(std::make_unique<Slot>()),
      localName_(std::move(name)) {}

FakePeripheral::~FakePeripheral() = default;

std::shared_ptr<FakePeripheral> FakePeripheral::printer(std::string name,
                                                        std::string manufacturer) {
  static std::atomic<int> made{0};
  char identifier[40];
  std::snprintf(identifier, sizeof identifier, "6F1C2A9E-0B5D-4E3A-9C1F-%012d", ++made);
  auto printer = std::make_shared<FakePeripheral>(identifier, name);
  printer->addService(kDeviceInformation, {{kManufacturerName, bytesOf(manufacturer)}});
  printer->addService(kSerialService, {{kReceive, std::nullopt}, {kWrite, std::nullopt}});
  return printer;
}

void FakePeripheral::setAdvertisedName(std::optional<std::string> localName) {
  std::lock_guard lock(mutex_);
  localName_ = std::move(localName);
}

void FakePeripheral::addService(ble::Uuid uuid,
                                std::vector<std::pair<ble::Uuid, std::optional<Bytes>>> chars) {
  std::vector<std::shared_ptr<FakeCharacteristic>> made;
  for (auto& [characteristic, value] : chars) {
    made.push_back(std::make_shared<FakeCharacteristic>(characteristic, std::move(value)));
  }
  std::lock_guard lock(mutex_);
  services_.push_back(std::make_shared<FakeService>(std::move(uuid), std::move(made)));
}

void FakePeripheral::setServiceDiscoveryError(std::optional<ble::Error> error) {
  std::lock_guard lock(mutex_);
  serviceError_ = std::move(error);
}

void FakePeripheral::setCharacteristicDiscoveryError(std::optional<ble::Error> error) {
  std::lock_guard lock(mutex_);
  characteristicError_ = std::move(error);
}

void FakePeripheral::setWriteError(std::optional<ble::Error> error) {
  std::lock_guard lock(mutex_);
  writeError_ = std::move(error);
}

void FakePeripheral::setConnectable(bool connectable) {
  std::lock_guard lock(mutex_);
  connectable_ = connectable;
}

void FakePeripheral::setResponder(Responder responder) {
  std::lock_guard lock(mutex_);
  responder_ = std::move(responder);
}

std::shared_ptr<FakeCharacteristic> FakePeripheral::findCharacteristic(
    const ble::Uuid& uuid) const {
  std::lock_guard lock(mutex_);
  for (const auto& service : services_) {
    if (auto found = service->find(uuid)) return found;
  }
  return nullptr;
}

void FakePeripheral::post(
    std::function<void(ble::PeripheralDelegate&, const std::shared_ptr<ble::Peripheral>&)> f) {
  auto central = [&] {
    std::lock_guard lock(mutex_);
    return central_.lock();
  }();
  if (!central) return;
  central->plumbing_->queue.post([weak = weak_from_this(), f = std::move(f)] {
    auto self = weak.lock();
    if (!self) return;
    self->delegate_->deliver([&](ble::PeripheralDelegate& delegate) { f(delegate, self); });
  });
}

void FakePeripheral::setState(ble::PeripheralState state) {
  std::lock_guard lock(mutex_);
  state_ = state;
}

void FakePeripheral::notify(const ble::Uuid& uuid, Bytes value) {
  auto characteristic = findCharacteristic(uuid);
  if (!characteristic) return;
  {
    std::lock_guard lock(mutex_);
    if (state_ != ble::PeripheralState::Connected || !notifying_[uuid.text()]) return;
  }
  // The value changes just before the delegate hears of it, as on a real
  // central, so every notification is seen with its own value.
  post([characteristic, value = std::move(value)](auto& delegate, const auto& self) {
    characteristic->setValue(value);
    delegate.peripheralDidUpdateValueForCharacteristic(self, characteristic, nullptr);
  });
}

void FakePeripheral::setValue(const ble::Uuid& uuid, Bytes value) {
  if (auto characteristic = findCharacteristic(uuid)) characteristic->setValue(std::move(value));
}

void FakePeripheral::setReadsDrain(const ble::Uuid& uuid, bool drains) {
  std::lock_guard lock(mutex_);
  readsDrain_[uuid.text()] = drains;
}

void FakePeripheral::dropConnection() {
  std::shared_ptr<FakeCentral> central;
  {
    std::lock_guard lock(mutex_);
    state_ = ble::PeripheralState::Disconnected;
    central = central_.lock();
  }
  if (central) central->disconnected(shared_from_this());
}

std::vector<FakePeripheral::Write> FakePeripheral::writes() const {
  std::lock_guard lock(mutex_);
  return writes_;
}

bool FakePeripheral::notifying(const ble::Uuid& uuid) const {
  std::lock_guard lock(mutex_);
  auto found = notifying_.find(uuid.text());
  return found != notifying_.end() && found->second;
}

int FakePeripheral::reads(const ble::Uuid& uuid) const {
  std::lock_guard lock(mutex_);
  auto found = reads_.find(uuid.text());
  return found == reads_.end() ? 0 : found->second;
}

std::optional<std::string> FakePeripheral::advertisedName() const {
  std::lock_guard lock(mutex_);
  return localName_;
}

ble::PeripheralDelegate* FakePeripheral::delegate() const {
  return delegate_->get();
}

ble::PeripheralState FakePeripheral::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

std::vector<std::shared_ptr<ble::Service>> FakePeripheral::services() const {
  std::lock_guard lock(mutex_);
  if (!servicesDiscovered_) return {};
  return {services_.begin(), services_.end()};
}

void FakePeripheral::setDelegate(ble::PeripheralDelegate* delegate) {
  delegate_->set(delegate);
}

void FakePeripheral::discoverServices() {
  post([](auto& delegate, const auto& self) {
    auto& printer = static_cast<FakePeripheral&>(*self);
    std::optional<ble::Error> error;
    {
      std::lock_guard lock(printer.mutex_);
      error = printer.serviceError_;
      if (!error) printer.servicesDiscovered_ = true;
    }
    delegate.peripheral(self, error ? &*error : nullptr);
  });
}

void FakePeripheral::discoverCharacteristics(const std::shared_ptr<ble::Service>& service) {
  post([service](auto& delegate, const auto& self) {
    auto& printer = static_cast<FakePeripheral&>(*self);
    std::optional<ble::Error> error;
    {
      std::lock_guard lock(printer.mutex_);
      error = printer.characteristicError_;
    }
    if (!error) {
      if (auto fake = std::dynamic_pointer_cast<FakeService>(service)) fake->markDiscovered();
    }
    delegate.peripheral(self, service, error ? &*error : nullptr);
  });
}

void FakePeripheral::readValue(const std::shared_ptr<ble::Characteristic>& characteristic) {
  if (!characteristic) return;
  bool drains;
  {
    std::lock_guard lock(mutex_);
    ++reads_[characteristic->uuid().text()];
    drains = readsDrain_[characteristic->uuid().text()];
  }
  post([characteristic, drains](auto& delegate, const auto& self) {
    delegate.peripheralDidUpdateValueForCharacteristic(self, characteristic, nullptr);
    if (drains) {
      if (auto fake = std::dynamic_pointer_cast<FakeCharacteristic>(characteristic)) {
        fake->setValue(Bytes{});
      }
    }
  });
}

void FakePeripheral::setMtu(std::uint16_t mtu) {
  std::lock_guard lock(mutex_);
  mtu_ = mtu;
}

std::size_t FakePeripheral::maximumWriteValueLength(ble::WriteType) const {
  std::lock_guard lock(mutex_);
  if (!mtu_ || *mtu_ < kSmallestWriteValueLength + 3) return kSmallestWriteValueLength;
  return *mtu_ - 3u;
}

void FakePeripheral::writeValue(ByteView data,
                                const std::shared_ptr<ble::Characteristic>& characteristic,
                                ble::WriteType type) {
  if (!characteristic) return;
  std::optional<ble::Error> error;
  Responder responder;
  std::shared_ptr<FakeCentral> central;
  {
    std::lock_guard lock(mutex_);
    if (state_ != ble::PeripheralState::Connected) return;
    writes_.push_back({Bytes(data.begin(), data.end()), type, characteristic->uuid()});
    error = writeError_;
    responder = responder_;
    central = central_.lock();
  }
  if (type == ble::WriteType::WithResponse) {
    post([characteristic, error](auto& delegate, const auto& self) {
      delegate.peripheralDidWriteValueForCharacteristic(self, characteristic,
                                                        error ? &*error : nullptr);
    });
  }
  if (responder && !error && central) {
    central->plumbing_->queue.post([weak = weak_from_this(), responder,
                                    uuid = characteristic->uuid(),
                                    bytes = Bytes(data.begin(), data.end())] {
      if (auto self = weak.lock()) responder(*self, uuid, bytes);
    });
  }
}

void FakePeripheral::setNotifyValue(bool enabled,
                                    const std::shared_ptr<ble::Characteristic>& characteristic) {
  if (!characteristic) return;
  std::lock_guard lock(mutex_);
  notifying_[characteristic->uuid().text()] = enabled;
}

// --- central -----------------------------------------------------------------

FakeCentral::FakeCentral(ble::CentralDelegate& delegate, std::string queueName,
                         ble::CentralState state,
                         std::vector<std::shared_ptr<FakePeripheral>> inRange, bool autoAdvertise)
    : plumbing_(std::make_unique<Plumbing>(delegate, std::move(queueName))),
      state_(state),
      inRange_(std::move(inRange)),
      autoAdvertise_(autoAdvertise) {}

FakeCentral::~FakeCentral() = default;

void FakeCentral::post(std::function<void(ble::CentralDelegate&)> f) {
  plumbing_->queue.post([weak = weak_from_this(), f = std::move(f)] {
    if (auto self = weak.lock()) self->plumbing_->delegate.deliver(f);
  });
}

void FakeCentral::setState(ble::CentralState state) {
  {
    std::lock_guard lock(mutex_);
    state_ = state;
  }
  post([this](ble::CentralDelegate& delegate) { delegate.centralManagerDidUpdateState(*this); });
}

void FakeCentral::advertise() {
  std::vector<std::shared_ptr<FakePeripheral>> inRange;
  {
    std::lock_guard lock(mutex_);
    inRange = inRange_;
  }
  for (const auto& peripheral : inRange) {
    post([this, peripheral](ble::CentralDelegate& delegate) {
      {
        std::lock_guard lock(mutex_);
        if (!scanning_) return;
      }
      delegate.centralManager(*this, peripheral, {peripheral->advertisedName()}, -60);
    });
  }
}

void FakeCentral::addPeripheral(std::shared_ptr<FakePeripheral> peripheral) {
  std::lock_guard lock(mutex_);
  inRange_.push_back(std::move(peripheral));
}

bool FakeCentral::scanning() const {
  std::lock_guard lock(mutex_);
  return scanning_;
}

int FakeCentral::scansStarted() const {
  std::lock_guard lock(mutex_);
  return scansStarted_;
}

void FakeCentral::drain() {
  plumbing_->queue.drain();
}

ble::CentralState FakeCentral::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

void FakeCentral::scanForPeripherals() {
  bool automatic;
  {
    std::lock_guard lock(mutex_);
    scanning_ = true;
    ++scansStarted_;
    automatic = autoAdvertise_;
  }
  if (automatic) advertise();
}

void FakeCentral::stopScan() {
  std::lock_guard lock(mutex_);
  scanning_ = false;
}

void FakeCentral::connect(const std::shared_ptr<ble::Peripheral>& peripheral) {
  auto printer = std::dynamic_pointer_cast<FakePeripheral>(peripheral);
  if (!printer) return;
  bool connectable;
  {
    std::lock_guard lock(printer->mutex_);
    printer->central_ = weak_from_this();
    printer->state_ = ble::PeripheralState::Connecting;
    connectable = printer->connectable_;
  }
  if (!connectable) return;
  post([this, printer](ble::CentralDelegate& delegate) {
    {
      std::lock_guard lock(printer->mutex_);
      if (printer->state_ != ble::PeripheralState::Connecting) return;
      printer->state_ = ble::PeripheralState::Connected;
    }
    delegate.centralManager(*this, printer);
  });
}

void FakeCentral::cancelPeripheralConnection(const std::shared_ptr<ble::Peripheral>& peripheral) {
  auto printer = std::dynamic_pointer_cast<FakePeripheral>(peripheral);
  if (!printer) return;
  {
    std::lock_guard lock(printer->mutex_);
    if (printer->state_ == ble::PeripheralState::Disconnected) return;
    printer->state_ = ble::PeripheralState::Disconnecting;
  }
  disconnected(printer);
}

void FakeCentral::disconnected(const std::shared_ptr<FakePeripheral>& printer) {
  post([this, printer](ble::CentralDelegate& delegate) {
    printer->setState(ble::PeripheralState::Disconnected);
    delegate.centralManager(*this, printer, static_cast<const ble::Error*>(nullptr));
  });
}

void FakeCentral::setDelegate(ble::CentralDelegate* delegate) {
  plumbing_->delegate.set(delegate);
}

// --- radio -----------------------------------------------------------------

void FakeBleRadio::addPeripheral(std::shared_ptr<FakePeripheral> peripheral) {
  std::shared_ptr<FakeCentral> central;
  {
    std::lock_guard lock(mutex_);
    peripherals_.push_back(peripheral);
    central = central_.lock();
  }
  if (central) central->addPeripheral(std::move(peripheral));
}

void FakeBleRadio::setInitialState(ble::CentralState state) {
  std::lock_guard lock(mutex_);
  initialState_ = state;
}

void FakeBleRadio::setAutoAdvertise(bool automatic) {
  std::lock_guard lock(mutex_);
  autoAdvertise_ = automatic;
}

std::shared_ptr<FakeCentral> FakeBleRadio::central() const {
  std::lock_guard lock(mutex_);
  return central_.lock();
}

std::shared_ptr<ble::Central> FakeBleRadio::makeCentral(ble::CentralDelegate& delegate,
                                                        const std::string& queueName) {
  std::lock_guard lock(mutex_);
  auto central = std::make_shared<FakeCentral>(delegate, queueName, initialState_, peripherals_,
                                               autoAdvertise_);
  central_ = central;
  // A new central reports the radio's state once, as a real one does.
  central->post(
      [raw = central.get()](ble::CentralDelegate& d) { d.centralManagerDidUpdateState(*raw); });
  return central;
}

}  // namespace orvante::testing
