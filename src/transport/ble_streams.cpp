#include "ble_streams.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include <orvante/platform/delegate_slot.hpp>
#include <orvante/platform/platform.hpp>
#include "ble_printer_profile.hpp"
#include "bluetooth_address.hpp"

namespace orvante::transport {
namespace {

using namespace printer_profile;
using namespace std::chrono_literals;

// How long closing waits for the radio to confirm that the link is down,
// so that the printer is free for the next central.
constexpr auto kDisconnectWait = 2s;

enum Side { kInput = 0, kOutput = 1 };

enum class Phase { Idle, Scanning, Connecting, Discovering, Open, Failed, Closing, Closed };

std::string reason(const ble::Error* error) {
  return error && !error->description.empty() ? ": " + error->description : std::string();
}

// The link both streams of a pair stand on. Central and peripheral
// callbacks arrive on the central's queue, which also delivers the streams'
// events; the streams' operations run on their callers' threads.
class BleLink final : public ble::CentralDelegate, public ble::PeripheralDelegate {
 public:
  BleLink(std::shared_ptr<ble::CentralFactory> radio, std::string address)
      : radio_(std::move(radio)), address_(std::move(address)) {}
  ~BleLink() override { shut(); }

  void attach(Side side, Stream* stream) {
    std::lock_guard lock(mutex_);
    ends_[side].stream = stream;
  }

  // The stream is going away: no event reaches it from now on.
  void detach(Side side) {
    ends_[side].delegate.set(nullptr);
    close(side);
    std::lock_guard lock(mutex_);
    ends_[side].stream = nullptr;
  }

  void open(Side side);
  void close(Side side);
  StreamStatus status(Side side) const;

  std::string error() const {
    std::lock_guard lock(mutex_);
    return error_;
  }

  void setDelegate(Side side, StreamDelegate* delegate) { ends_[side].delegate.set(delegate); }

  void schedule(Side side, bool scheduled) {
    std::lock_guard lock(mutex_);
    ends_[side].scheduled = scheduled;
  }

  bool hasBytesAvailable() const {
    std::lock_guard lock(mutex_);
    return !received_.empty();
  }

  std::int64_t read(std::uint8_t* buffer, std::size_t maxLength);

  bool hasSpaceAvailable() const {
    std::lock_guard lock(mutex_);
    return phase_ == Phase::Open && !inFlight_ && !ends_[kOutput].closed;
  }

  std::int64_t write(const std::uint8_t* bytes, std::size_t length);

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
      const std::shared_ptr<ble::Characteristic>& characteristic,
      const ble::Error* error) override;
  void peripheralDidWriteValueForCharacteristic(
      const std::shared_ptr<ble::Peripheral>& peripheral,
      const std::shared_ptr<ble::Characteristic>& characteristic,
      const ble::Error* error) override;

 private:
  struct End {
    Stream* stream = nullptr;
    DelegateSlot<StreamDelegate> delegate;
    bool scheduled = false;
    bool opened = false;
    bool closed = false;
  };

  void startScan(ble::Central& central);
  void radioState(ble::CentralState state);
  // The first failure puts both streams in the error state; later ones
  // and failures after a close are not reported.
  void fail(const std::string& why);
  void emit(Side side, std::uint64_t event);
  void opened();
  void shut();
  void noteQueueThread() {
    std::lock_guard lock(mutex_);
    queueThread_ = std::this_thread::get_id();
  }

  const std::shared_ptr<ble::CentralFactory> radio_;
  const std::string address_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::array<End, 2> ends_;
  Phase phase_ = Phase::Idle;
  std::string error_;
  std::shared_ptr<ble::Central> central_;
  bool scanning_ = false;
  std::shared_ptr<ble::Peripheral> peripheral_;
  std::shared_ptr<ble::Characteristic> write_;
  Bytes received_;
  // One acknowledged write at a time: the next waits for this one's answer.
  bool inFlight_ = false;
  bool linkDown_ = false;
  std::thread::id queueThread_;
};

// --- the streams' side --------------------------------------------------------

void BleLink::open(Side side) {
  bool alreadyOpen = false;
  {
    std::lock_guard lock(mutex_);
    if (ends_[side].opened || ends_[side].closed) return;
    ends_[side].opened = true;
    if (phase_ != Phase::Idle) {
      // The other stream started the link.
      if (phase_ != Phase::Open) return;
      alreadyOpen = true;
    } else {
      phase_ = Phase::Scanning;
    }
  }
  if (alreadyOpen) {
    emit(side, stream_event::OpenCompleted);
    if (side == kOutput && hasSpaceAvailable()) emit(side, stream_event::HasSpaceAvailable);
    return;
  }
  auto central = radio_ ? radio_->makeCentral(*this, "orvante.ble") : nullptr;
  if (!central) return fail("no Bluetooth LE radio");
  {
    std::lock_guard lock(mutex_);
    if (phase_ == Phase::Closing || phase_ == Phase::Closed) {
      central->setDelegate(nullptr);
      return;
    }
    central_ = central;
  }
  // A central that already knows the radio's state may not report it again.
  radioState(central->state());
}

void BleLink::close(Side side) {
  bool last;
  {
    std::lock_guard lock(mutex_);
    if (ends_[side].closed) return;
    ends_[side].closed = true;
    changed_.notify_all();
    last = ends_[kInput].closed && ends_[kOutput].closed;
  }
  if (last) shut();
}

StreamStatus BleLink::status(Side side) const {
  std::lock_guard lock(mutex_);
  if (ends_[side].closed) return StreamStatus::Closed;
  if (!ends_[side].opened) return StreamStatus::NotOpen;
  switch (phase_) {
    case Phase::Idle:
      return StreamStatus::NotOpen;
    case Phase::Scanning:
    case Phase::Connecting:
    case Phase::Discovering:
      return StreamStatus::Opening;
    case Phase::Open:
      return StreamStatus::Open;
    case Phase::Failed:
      return StreamStatus::Error;
    case Phase::Closing:
    case Phase::Closed:
      break;
  }
  return StreamStatus::Closed;
}

std::int64_t BleLink::read(std::uint8_t* buffer, std::size_t maxLength) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] {
    return !received_.empty() || phase_ != Phase::Open || ends_[kInput].closed;
  });
  if (received_.empty()) return ends_[kInput].closed ? 0 : -1;
  const std::size_t count = std::min(maxLength, received_.size());
  std::memcpy(buffer, received_.data(), count);
  received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(count));
  return static_cast<std::int64_t>(count);
}

std::int64_t BleLink::write(const std::uint8_t* bytes, std::size_t length) {
  std::shared_ptr<ble::Peripheral> peripheral;
  std::shared_ptr<ble::Characteristic> characteristic;
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return phase_ != Phase::Open || !inFlight_ || ends_[kOutput].closed; });
    if (phase_ != Phase::Open || ends_[kOutput].closed) return -1;
    if (length == 0) return 0;
    peripheral = peripheral_;
    characteristic = write_;
    inFlight_ = true;
  }
  // The link may have agreed on a larger MTU since the last write.
  const std::size_t count = std::min(
      length, std::max<std::size_t>(1, peripheral->maximumWriteValueLength(ble::WriteType::WithResponse)));
  peripheral->writeValue(ByteView(bytes, count), characteristic, ble::WriteType::WithResponse);
  return static_cast<std::int64_t>(count);
}

void BleLink::emit(Side side, std::uint64_t event) {
  Stream* stream;
  {
    std::lock_guard lock(mutex_);
    const auto& end = ends_[side];
    if (!end.scheduled || !end.opened || end.closed) return;
    stream = end.stream;
  }
  if (!stream) return;
  ends_[side].delegate.deliver([&](StreamDelegate& delegate) { delegate.stream(stream, event); });
}

void BleLink::fail(const std::string& why) {
  {
    std::lock_guard lock(mutex_);
    if (phase_ == Phase::Failed || phase_ == Phase::Closing || phase_ == Phase::Closed) return;
    phase_ = Phase::Failed;
    error_ = why;
    changed_.notify_all();
  }
  emit(kInput, stream_event::ErrorOccurred);
  emit(kOutput, stream_event::ErrorOccurred);
}

void BleLink::shut() {
  std::shared_ptr<ble::Central> central;
  std::shared_ptr<ble::Peripheral> peripheral;
  bool wait;
  {
    std::lock_guard lock(mutex_);
    if (phase_ == Phase::Closing || phase_ == Phase::Closed) return;
    phase_ = Phase::Closing;
    changed_.notify_all();
    central = central_;
    peripheral = peripheral_;
    // The queue cannot report the disconnection while it runs this.
    wait = peripheral && !linkDown_ && std::this_thread::get_id() != queueThread_;
  }
  if (central) {
    central->stopScan();
    if (peripheral) central->cancelPeripheralConnection(peripheral);
    if (wait) {
      std::unique_lock lock(mutex_);
      changed_.wait_for(lock, kDisconnectWait, [&] { return linkDown_; });
    }
    if (peripheral) peripheral->setDelegate(nullptr);
    central->setDelegate(nullptr);
  }
  std::lock_guard lock(mutex_);
  phase_ = Phase::Closed;
  central_.reset();
  peripheral_.reset();
  write_.reset();
}

// --- the radio's side -----------------------------------------------------------

void BleLink::startScan(ble::Central& central) {
  {
    std::lock_guard lock(mutex_);
    if (phase_ != Phase::Scanning || scanning_) return;
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
    linkDown_ = true;
    changed_.notify_all();
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
    changed_.notify_all();
  }
  emit(kInput, stream_event::OpenCompleted);
  emit(kOutput, stream_event::OpenCompleted);
  emit(kOutput, stream_event::HasSpaceAvailable);
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
    changed_.notify_all();
  }
  emit(kInput, stream_event::HasBytesAvailable);
}

void BleLink::peripheralDidWriteValueForCharacteristic(
    const std::shared_ptr<ble::Peripheral>&, const std::shared_ptr<ble::Characteristic>&,
    const ble::Error* error) {
  if (error) return fail("the printer refused a write" + reason(error));
  {
    std::lock_guard lock(mutex_);
    inFlight_ = false;
    changed_.notify_all();
  }
  emit(kOutput, stream_event::HasSpaceAvailable);
}

// --- the streams ------------------------------------------------------------------

template <class Base, Side kSide>
class BleEnd : public Base {
 public:
  explicit BleEnd(std::shared_ptr<BleLink> link) : link_(std::move(link)) {
    link_->attach(kSide, this);
  }
  ~BleEnd() override { link_->detach(kSide); }

  void open() override { link_->open(kSide); }
  void close() override { link_->close(kSide); }
  StreamStatus streamStatus() const override { return link_->status(kSide); }
  std::string streamError() const override {
    return link_->status(kSide) == StreamStatus::Error ? link_->error() : std::string();
  }
  void setDelegate(StreamDelegate* delegate) override { link_->setDelegate(kSide, delegate); }
  void scheduleInRunLoop() override { link_->schedule(kSide, true); }
  void removeFromRunLoop() override { link_->schedule(kSide, false); }

 protected:
  const std::shared_ptr<BleLink> link_;
};

class BleInputStream final : public BleEnd<InputStream, kInput> {
 public:
  using BleEnd::BleEnd;
  bool hasBytesAvailable() override { return link_->hasBytesAvailable(); }
  std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
    return link_->read(buffer, maxLength);
  }
};

class BleOutputStream final : public BleEnd<OutputStream, kOutput> {
 public:
  using BleEnd::BleEnd;
  bool hasSpaceAvailable() override { return link_->hasSpaceAvailable(); }
  std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
    return link_->write(bytes, length);
  }
};

}  // namespace

StreamPair makeBleStreams(std::shared_ptr<ble::CentralFactory> radio, std::string address) {
  auto link = std::make_shared<BleLink>(std::move(radio), std::move(address));
  return {std::make_shared<BleInputStream>(link), std::make_shared<BleOutputStream>(link)};
}

StreamPair makeBleStreams(std::string address) {
  return makeBleStreams(Platform::system().ble, std::move(address));
}

}  // namespace orvante::transport
