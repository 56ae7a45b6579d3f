#include "ble_link.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "ble_printer_profile.hpp"
#include "bluetooth_address.hpp"

namespace orvante::transport {
namespace {

using namespace printer_profile;
using namespace std::chrono_literals;

// How long closing waits for the radio to confirm that the link is down,
// so that the printer is free for the next central.
constexpr auto kDisconnectWait = 2s;

enum class Phase { Scanning, Connecting, Discovering, Open, Down };

std::string reason(const ble::Error* error) {
  return error && !error->description.empty() ? ": " + error->description : std::string();
}

// Central and peripheral callbacks arrive on the central's queue, which
// also tells the link's events; reads and writes run on their callers'
// threads.
class BleLink final : public Link, public ble::CentralDelegate, public ble::PeripheralDelegate {
 public:
  BleLink(std::shared_ptr<ble::CentralFactory> radio, std::string address)
      : Link("ble://" + address), radio_(std::move(radio)), address_(std::move(address)) {}
  ~BleLink() override { close(); }

  // ble::CentralDelegate
  void centralManagerDidUpdateState(ble::Central& central) override;
  void centralManager(ble::Central& central, const std::shared_ptr<ble::Peripheral>& peripheral,
                      const ble::AdvertisementData& advertisementData, std::int64_t RSSI) override;
  void centralManager(ble::Central& central,
                      const std::shared_ptr<ble::Peripheral>& peripheral) override;
  void centralManager(ble::Central& central, const std::shared_ptr<ble::Peripheral>& peripheral,
                      const ble::Error* error) override;

  // ble::PeripheralDelegate
  void peripheral(const std::shared_ptr<ble::Peripheral>& peripheral,
                  const ble::Error* error) override;
  void peripheral(const std::shared_ptr<ble::Peripheral>& peripheral,
                  const std::shared_ptr<ble::Service>& service, const ble::Error* error) override;
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<ble::Peripheral>& peripheral,
      const std::shared_ptr<ble::Characteristic>& characteristic, const ble::Error* error) override;
  void peripheralDidWriteValueForCharacteristic(
      const std::shared_ptr<ble::Peripheral>& peripheral,
      const std::shared_ptr<ble::Characteristic>& characteristic, const ble::Error* error) override;

 protected:
  void doStart() override;
  std::size_t doRead(std::span<std::uint8_t> buffer) override;
  std::size_t doWrite(ByteView bytes) override;
  std::size_t doAvailable() override {
    std::lock_guard lock(mutex_);
    return received_.size();
  }
  bool doWritable() override {
    std::lock_guard lock(mutex_);
    return phase_ == Phase::Open && !inFlight_;
  }
  bool doFlushed() override { return doWritable(); }
  void doClose() override;

 private:
  void startScan(ble::Central& central);
  void radioState(ble::CentralState state);
  void fail(const std::string& why);
  void noteQueueThread() {
    std::lock_guard lock(mutex_);
    queueThread_ = std::this_thread::get_id();
  }

  const std::shared_ptr<ble::CentralFactory> radio_;
  const std::string address_;
  mutable std::mutex mutex_;  // everything below
  std::condition_variable linkDown_;
  Phase phase_ = Phase::Scanning;
  std::shared_ptr<ble::Central> central_;
  bool scanning_ = false;
  bool closing_ = false;
  std::shared_ptr<ble::Peripheral> peripheral_;
  std::shared_ptr<ble::Characteristic> write_;
  Bytes received_;
  // One acknowledged write at a time: the next waits for this one's answer.
  bool inFlight_ = false;
  bool down_ = false;
  std::thread::id queueThread_;
};

// --- the caller's side ------------------------------------------------------------

void BleLink::doStart() {
  auto central = radio_ ? radio_->makeCentral(*this, "orvante.ble") : nullptr;
  if (!central) return fail("no Bluetooth LE radio");
  {
    std::lock_guard lock(mutex_);
    if (closing_) {
      central->setDelegate(nullptr);
      return;
    }
    central_ = central;
  }
  // A central that already knows the radio's state may not report it again.
  radioState(central->state());
}

std::size_t BleLink::doRead(std::span<std::uint8_t> buffer) {
  std::lock_guard lock(mutex_);
  const std::size_t count = std::min(buffer.size(), received_.size());
  std::copy_n(received_.begin(), count, buffer.begin());
  received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(count));
  return count;
}

std::size_t BleLink::doWrite(ByteView bytes) {
  std::shared_ptr<ble::Peripheral> peripheral;
  std::shared_ptr<ble::Characteristic> characteristic;
  {
    std::lock_guard lock(mutex_);
    if (phase_ != Phase::Open || inFlight_) return 0;
    peripheral = peripheral_;
    characteristic = write_;
    inFlight_ = true;
  }
  // The link may have agreed on a larger MTU since the last write.
  const std::size_t count = std::min(
      bytes.size(),
      std::max<std::size_t>(1, peripheral->maximumWriteValueLength(ble::WriteType::WithResponse)));
  peripheral->writeValue(bytes.first(count), characteristic, ble::WriteType::WithResponse);
  return count;
}

void BleLink::fail(const std::string& why) {
  {
    std::lock_guard lock(mutex_);
    phase_ = Phase::Down;
  }
  failed(why);
}

void BleLink::doClose() {
  std::shared_ptr<ble::Central> central;
  std::shared_ptr<ble::Peripheral> peripheral;
  bool wait;
  {
    std::lock_guard lock(mutex_);
    if (closing_) return;
    closing_ = true;
    phase_ = Phase::Down;
    central = central_;
    peripheral = peripheral_;
    // The queue cannot report the disconnection while it runs this.
    wait = peripheral && !down_ && std::this_thread::get_id() != queueThread_;
  }
  if (central) {
    central->stopScan();
    if (peripheral) central->cancelPeripheralConnection(peripheral);
    if (wait) {
      std::unique_lock lock(mutex_);
      linkDown_.wait_for(lock, kDisconnectWait, [&] { return down_; });
    }
    if (peripheral) peripheral->setDelegate(nullptr);
    central->setDelegate(nullptr);
  }
  std::lock_guard lock(mutex_);
  central_.reset();
  peripheral_.reset();
  write_.reset();
}

// --- the radio's side -----------------------------------------------------------

void BleLink::startScan(ble::Central& central) {
  {
    std::lock_guard lock(mutex_);
    if (phase_ != Phase::Scanning || scanning_ || closing_) return;
    scanning_ = true;
  }
  central.scanForPeripherals();
}

void BleLink::radioState(ble::CentralState state) {
  switch (state) {
    case ble::CentralState::PoweredOn: {
      std::shared_ptr<ble::Central> central;
      {
        std::lock_guard lock(mutex_);
        central = central_;
      }
      if (central) startScan(*central);
      return;
    }
    case ble::CentralState::PoweredOff:
      return fail("Bluetooth is off");
    case ble::CentralState::Unsupported:
      return fail("this computer has no Bluetooth LE adapter");
    case ble::CentralState::Unauthorized:
      return fail("this program may not use Bluetooth");
    case ble::CentralState::Unknown:
    case ble::CentralState::Resetting:
      return;  // the state follows
  }
}

void BleLink::centralManagerDidUpdateState(ble::Central& central) {
  noteQueueThread();
  if (central.state() == ble::CentralState::PoweredOn) return startScan(central);
  radioState(central.state());
}

void BleLink::centralManager(ble::Central& central,
                             const std::shared_ptr<ble::Peripheral>& peripheral,
                             const ble::AdvertisementData&, std::int64_t) {
  noteQueueThread();
  const auto identifier = peripheral ? peripheral->identifier() : std::nullopt;
  if (!identifier || !sameBluetoothAddress(*identifier, address_)) return;
  {
    std::lock_guard lock(mutex_);
    if (phase_ != Phase::Scanning) return;
    phase_ = Phase::Connecting;
    peripheral_ = peripheral;
  }
  central.stopScan();
  central.connect(peripheral);
}

void BleLink::centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>& peripheral) {
  {
    std::lock_guard lock(mutex_);
    if (phase_ != Phase::Connecting || peripheral != peripheral_) return;
    phase_ = Phase::Discovering;
  }
  peripheral->setDelegate(this);
  peripheral->discoverServices();
}

void BleLink::centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>& peripheral,
                             const ble::Error* error) {
  Phase phase;
  {
    std::lock_guard lock(mutex_);
    if (peripheral != peripheral_) return;
    down_ = true;
    linkDown_.notify_all();
    phase = phase_;
  }
  if (phase == Phase::Open) return fail("the printer disconnected" + reason(error));
  fail("the connection failed" + reason(error));
}

void BleLink::peripheral(const std::shared_ptr<ble::Peripheral>& peripheral,
                         const ble::Error* error) {
  if (error) return fail("its services could not be discovered" + reason(error));
  for (const auto& service : peripheral->services()) {
    if (service->uuid() == kSerialService) return peripheral->discoverCharacteristics(service);
  }
  fail("it offers no printer serial service (" + kSerialService.text() + ")");
}

void BleLink::peripheral(const std::shared_ptr<ble::Peripheral>& peripheral,
                         const std::shared_ptr<ble::Service>& service, const ble::Error* error) {
  if (!service || !(service->uuid() == kSerialService)) return;
  if (error) return fail("its serial service could not be discovered" + reason(error));
  std::shared_ptr<ble::Characteristic> write, receive;
  for (const auto& characteristic : service->characteristics()) {
    if (characteristic->uuid() == kWrite) write = characteristic;
    if (characteristic->uuid() == kReceive) receive = characteristic;
  }
  if (!write) return fail("its serial service has no write characteristic");
  // Turned on before the first write goes out, so no reply is missed.
  if (receive) peripheral->setNotifyValue(true, receive);
  {
    std::lock_guard lock(mutex_);
    if (phase_ != Phase::Discovering) return;
    write_ = write;
    phase_ = Phase::Open;
  }
  opened();
  writableAgain();
}

void BleLink::peripheralDidUpdateValueForCharacteristic(
    const std::shared_ptr<ble::Peripheral>&,
    const std::shared_ptr<ble::Characteristic>& characteristic, const ble::Error* error) {
  if (error || !characteristic || !(characteristic->uuid() == kReceive)) return;
  const auto value = characteristic->value();
  if (!value || value->empty()) return;
  {
    std::lock_guard lock(mutex_);
    if (phase_ != Phase::Open) return;
    received_.insert(received_.end(), value->begin(), value->end());
  }
  readable();
}

void BleLink::peripheralDidWriteValueForCharacteristic(const std::shared_ptr<ble::Peripheral>&,
                                                       const std::shared_ptr<ble::Characteristic>&,
                                                       const ble::Error* error) {
  if (error) return fail("the printer refused a write" + reason(error));
  {
    std::lock_guard lock(mutex_);
    inFlight_ = false;
  }
  writableAgain();
}

}  // namespace

std::shared_ptr<Link> bleLink(std::shared_ptr<ble::CentralFactory> radio, std::string address) {
  return std::make_shared<BleLink>(std::move(radio), std::move(address));
}

}  // namespace orvante::transport
