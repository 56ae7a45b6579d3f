// Printer queries: a short query goes out and the reply comes back as the
// printer sent it. Over TCP and the accessory link the reply is read until
// silence; over BLE it accumulates by notification until it settles.

#include <orvante/commands.hpp>
#include "../commands/text_encoding.hpp"
#include "internals.hpp"
#include "session_ops.hpp"

using orvante::Bytes;
using orvante::ByteView;

namespace {

// The reply of a query whose link reported an error while it waited.
const Bytes kErrorMarker{0xFF};

constexpr double kBleSettlePass = 1.0;

using namespace orvante::commands;
const char kLineEnd[] = "\r\n";

bool statusKeepsWaiting(orvante::StreamStatus status) {
  return status == orvante::StreamStatus::Opening || status == orvante::StreamStatus::Open ||
         status == orvante::StreamStatus::Reading || status == orvante::StreamStatus::Writing;
}

// The BLE receive buffer as UTF-8 text; none when it is not UTF-8.
std::optional<std::string> decodedText(const std::optional<Bytes>& bytes) {
  if (!bytes) return std::nullopt;
  return orvante::decodeUtf8(*bytes);
}

}  // namespace

// Waits, without pausing, until the reply starts or the link fails. On TCP
// the reply starts when the input has bytes; on the accessory link the wait
// ends as soon as the accessory streams are ready.
std::optional<Bytes> SessionOps::awaitReply(ORVANTESDK& s, bool watchOutputStatus) {
  const bool tcp = SessionOps::currentLink(s) == Link::Tcp;
  std::optional<Bytes> outcome;
  // Each test is the published one; between tests the caller sleeps until
  // an event of the link may have changed the answer.
  s.internals_->waitUntil([&] {
    if (tcp) {
      auto input = s.iStream.load();
      if (SessionOps::currentLink(s) == Link::Tcp && input && input->hasBytesAvailable())
        return true;
    } else if (s.MFIPortEnable == 1) {
      return true;
    }
    std::int64_t failed = 1;
    if (s.error.compare_exchange_strong(failed, 0)) {
      outcome = kErrorMarker;
      return true;
    }
    if (watchOutputStatus) {
      auto output = s.oStream.load();
      const auto status = output ? output->streamStatus() : orvante::StreamStatus::NotOpen;
      if (!statusKeepsWaiting(status)) {
        outcome = kErrorMarker;
        return true;
      }
    }
    return false;
  });
  if (outcome) return outcome;
  return s.readStream();
}

// The BLE reply is complete when four passes in a row find the receive
// buffer unchanged. The published wait tests the two decoded texts for
// identity, which has no meaning for values; they are compared here by
// content, so a reply that stops changing ends the wait after four passes.
Bytes SessionOps::settleBleReply(ORVANTESDK& s) {
  std::optional<std::string> previous = std::string();
  int unchanged = 0;
  for (;;) {
    if (s.IsXpico) {
      auto peripheral = s.connectPeripheral.load();
      auto characteristic = s.cbReadCharacteristic.load();
      if (peripheral && characteristic) peripheral->readValue(characteristic);
      s.pause(kBleSettlePass);
    }
    if (decodedText(s.BLEReceivebuffer.load()) == previous) {
      if (++unchanged > 3) break;
    } else {
      previous = decodedText(s.BLEReceivebuffer.load());
      unchanged = 0;
    }
    s.pause(kBleSettlePass);
  }
  return s.BLEReceivebuffer.load().value_or(Bytes{});
}

std::optional<Bytes> SessionOps::query(ORVANTESDK& s, ByteView command, double tcpPause) {
  switch (SessionOps::currentLink(s)) {
    case Link::Tcp: {
      s.pause(tcpPause);
      ORVANTESDK::Internals::ReplyClaim claim(*s.internals_);
      s.sendcommandWithData(command);
      return SessionOps::awaitReply(s, false);
    }
    case Link::Accessory: {
      ORVANTESDK::Internals::ReplyClaim claim(*s.internals_);
      s.sendcommandWithData(command);
      return SessionOps::awaitReply(s, false);
    }
    case Link::Ble:
      s.sendcommandWithData(command);
      s.pause(kBleSettlePass);
      return SessionOps::settleBleReply(s);
    case Link::None:
      break;
  }
  return std::nullopt;
}

std::optional<Bytes> ORVANTESDK::printer_name() {
  return SessionOps::query(*this, orvante::viewOf(kNameQuery), 0.3);
}

std::optional<Bytes> ORVANTESDK::printer_codepage() {
  return SessionOps::query(*this, orvante::viewOf(kCodePageQuery), 0.3);
}

std::optional<Bytes> ORVANTESDK::printer_mileage() {
  return SessionOps::query(*this, orvante::viewOf(kMileageQuery), 0.2);
}

std::optional<Bytes> ORVANTESDK::printer_freememory() {
  return SessionOps::query(*this, orvante::viewOf(kFreeMemoryQuery), 0.2);
}

std::optional<Bytes> ORVANTESDK::printer_files() {
  return SessionOps::query(*this, orvante::viewOf(kFilesQuery), 0.2);
}

std::optional<Bytes> ORVANTESDK::printerstatus() {
  pause(0.2);
  if (stream_status() == -1) return orvante::bytesOf("-1");
  const auto link = SessionOps::currentLink(*this);
  if (link == Link::Ble) return SessionOps::query(*this, orvante::viewOf(kStatusQuery), 0);
  if (link == Link::None) return std::nullopt;
  Internals::ReplyClaim claim(*internals_);
  sendcommandWithData(orvante::viewOf(kStatusQuery));
  return SessionOps::awaitReply(*this, true);
}

std::optional<Bytes> ORVANTESDK::sendcommand_getstring(const std::string& text) {
  return sendcommand_getstring(text, 1.0);
}

std::optional<Bytes> ORVANTESDK::sendcommand_getstring(const std::string& text, double delay) {
  pause(delay);
  const Bytes bytes = orvante::encode(text, orvante::Encoding::Utf8);
  const auto link = SessionOps::currentLink(*this);
  if (link == Link::None) return std::nullopt;
  if (link == Link::Ble) {
    sendcommandWithData(bytes);
    sendcommandWithData(orvante::viewOf(kLineEnd));
    pause(static_cast<double>(bytes.size() / 1000));
    return SessionOps::settleBleReply(*this);
  }
  Internals::ReplyClaim claim(*internals_);
  sendcommandWithData(bytes);
  sendcommandWithData(orvante::viewOf(kLineEnd));
  return SessionOps::awaitReply(*this, false);
}
