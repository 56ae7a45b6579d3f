// The session object: construction, destruction, link status, the
// connection guard, the version notice and the write dispatcher.

#include <orvante/exception.hpp>
#include <orvante/log.hpp>
#include <orvante/session.hpp>

#include "internals.hpp"
#include "notice.hpp"
#include "session_ops.hpp"

using orvante::Bytes;
using orvante::ByteView;

namespace {

// Missing services fall back to the system's, so a test can replace one seam.
orvante::Platform complete(orvante::Platform platform) {
  if (!platform.clock || !platform.streams || !platform.accessories || !platform.ble) {
    const auto system = orvante::Platform::system();
    if (!platform.clock) platform.clock = system.clock;
    if (!platform.streams) platform.streams = system.streams;
    if (!platform.accessories) platform.accessories = system.accessories;
    if (!platform.ble) platform.ble = system.ble;
  }
  return platform;
}

}  // namespace

ORVANTESDK::ORVANTESDK() : ORVANTESDK(orvante::Platform::system()) {}

ORVANTESDK::ORVANTESDK(orvante::Platform platform)
    : internals_(std::make_unique<Internals>(*this, complete(std::move(platform)))) {
  ORVANTESDKFields::CM =
      internals_->platform.ble->makeCentral(internals_->delegates, "myCentralQueue");
  pause(1.0);
}

ORVANTESDK::~ORVANTESDK() {
  closeport();
  SessionOps::detachEverything(*this);
}

// After this no thread of the library calls into the session again.
void SessionOps::detachEverything(ORVANTESDK& s) {
  s.internals_->destroying = true;
  if (auto central = s.CM()) central->setDelegate(nullptr);
  if (auto peripheral = s.connectPeripheral.load()) peripheral->setDelegate(nullptr);

  auto release = [](const std::shared_ptr<orvante::Stream>& stream) {
    if (!stream) return;
    stream->setDelegate(nullptr);
    stream->close();
  };
  release(s.iStream.exchange(nullptr));
  release(s.oStream.exchange(nullptr));
  release(s.ORVANTESDKFields::readStream.exchange(nullptr));
  release(s.writeStream.exchange(nullptr));
  if (auto accessorySession = s.ORVANTESDKFields::session.exchange(nullptr)) {
    release(accessorySession->inputStream());
    release(accessorySession->outputStream());
  }
  std::vector<orvante::StreamPair> abandoned;
  {
    std::lock_guard lock(s.internals_->abandonedMutex);
    abandoned.swap(s.internals_->abandoned);
  }
  for (auto& pair : abandoned) {
    release(pair.input);
    release(pair.output);
  }

  s.internals_->joinThreads();
}

const orvante::Platform& ORVANTESDK::platform() const {
  return internals_->platform;
}

void ORVANTESDK::pause(double seconds) {
  internals_->platform.clock->sleepFor(seconds);
}

// Replaced streams that still live stay open until the session goes; a
// pair that has closed or failed holds nothing a user can reach and is
// released, so failed opens do not pile up descriptors and threads.
void SessionOps::keepAbandoned(ORVANTESDK& s, orvante::StreamPair streams) {
  std::vector<orvante::StreamPair> released;
  std::lock_guard lock(s.internals_->abandonedMutex);
  auto& kept = s.internals_->abandoned;
  for (auto it = kept.begin(); it != kept.end();) {
    if (orvante::isDead(*it)) {
      released.push_back(std::move(*it));
      it = kept.erase(it);
    } else {
      ++it;
    }
  }
  if (!orvante::isDead(streams)) kept.push_back(std::move(streams));
}

std::shared_ptr<orvante::OutputStream> SessionOps::accessoryOutput(ORVANTESDK& s) {
  auto accessorySession = s.session();
  return accessorySession ? accessorySession->outputStream() : nullptr;
}

std::int32_t ORVANTESDK::stream_status() {
  std::shared_ptr<orvante::OutputStream> output;
  switch (SessionOps::currentLink(*this)) {
    case Link::Tcp:
      output = oStream.load();
      break;
    case Link::Accessory:
      output = SessionOps::accessoryOutput(*this);
      break;
    case Link::Ble: {
      auto central = CM();
      const auto state = central ? central->state() : orvante::ble::CentralState::Unknown;
      if (state == orvante::ble::CentralState::PoweredOn) return 2;
      if (state == orvante::ble::CentralState::PoweredOff) return 0;
      return -1;
    }
    case Link::None:
      return -1;
  }
  return output ? static_cast<std::int32_t>(output->streamStatus()) : -1;
}

void ORVANTESDK::_checkIfConnecting() {
  if (oStream.load() && iStream.load()) return;
  throw orvante::Exception("NoConnectionException", "Connection isn't estabilshed.");
}

void ORVANTESDK::about() {
  orvante::showNotice({"Version", "1.0A", "OK"});
}

void ORVANTESDK::timeout(const orvante::Value&) {
  about();
  orvante::log("time out");
}

void ORVANTESDK::thread_operation(ByteView data) {
  const auto link = SessionOps::currentLink(*this);
  if (link == Link::Tcp) {
    ethernet_writeStream(data);
  } else if (link == Link::Accessory) {
    // The asynchronous write takes the field stream_buffer, not the argument.
    Bytes pending = stream_buffer.load().value_or(Bytes{});
    internals_->worker().post([this, pending = std::move(pending)] { mfi_writeStream(pending); });
  }
}

std::shared_ptr<orvante::Accessory> ORVANTESDK::accessory() const {
  return ORVANTESDKFields::accessory.load();
}

std::shared_ptr<orvante::AccessorySession> ORVANTESDK::session() const {
  return ORVANTESDKFields::session.load();
}

std::shared_ptr<orvante::ble::Central> ORVANTESDK::CM() const {
  return ORVANTESDKFields::CM.load();
}

void ORVANTESDK::setAccessory(std::shared_ptr<orvante::Accessory> value) {
  ORVANTESDKFields::accessory = std::move(value);
}

void ORVANTESDK::setSession(std::shared_ptr<orvante::AccessorySession> value) {
  ORVANTESDKFields::session = std::move(value);
}

void ORVANTESDK::setCM(std::shared_ptr<orvante::ble::Central> value) {
  ORVANTESDKFields::CM = std::move(value);
}
