// Reply reading and the stream events of the TCP and accessory links.

#include <orvante/log.hpp>
#include <orvante/session.hpp>

#include "internals.hpp"
#include "session_ops.hpp"

using orvante::Bytes;

namespace {

constexpr double kReadPause = 0.4;
constexpr std::size_t kReadBlock = 512;

}  // namespace

std::shared_ptr<orvante::InputStream> SessionOps::replySource(ORVANTESDK& s) {
  switch (SessionOps::currentLink(s)) {
    case Link::Tcp:
      return s.iStream.load();
    case Link::Accessory:
      if (auto accessorySession = s.session()) return accessorySession->inputStream();
      return nullptr;
    case Link::Ble:
    case Link::None:
      break;
  }
  return nullptr;
}

// A reply is complete when one read pause passes with no byte waiting. The
// caller of the reader waits for a reply, so the reply is its own: it
// claims the link's bytes from the event handler for as long as it reads.
Bytes ORVANTESDK::readStream() {
  Internals::ReplyClaim claim(*internals_);
  _readData = Bytes{};
  if (SessionOps::readsStreams(*this)) {
    const auto source = SessionOps::replySource(*this);
    while (source) {
      pause(kReadPause);
      if (!source->hasBytesAvailable()) break;
      std::uint8_t block[kReadBlock];
      const auto count = source->read(block, kReadBlock);
      if (count < 0) break;
      _readData.with([&](std::optional<Bytes>& data) {
        if (!data) data.emplace();
        data->insert(data->end(), block, block + count);
      });
    }
    receivejudge = 0;
  }
  return _readData.load().value_or(Bytes{});
}

// The event handler's read: bytes that arrive while no operation waits for
// a reply are read and dropped. It stops as soon as an operation claims the
// link, so a reply always belongs to the operation waiting for it.
void SessionOps::drainUnclaimedReply(ORVANTESDK& s) {
  const auto source = SessionOps::replySource(s);
  Bytes drained;
  bool claimed = false;
  while (source) {
    s.pause(kReadPause);
    std::lock_guard gate(s.internals_->replyGate);
    if (s.internals_->replyClaims > 0) {
      claimed = true;
      break;
    }
    if (!source->hasBytesAvailable()) break;
    std::uint8_t block[kReadBlock];
    const auto count = source->read(block, kReadBlock);
    if (count < 0) break;
    drained.insert(drained.end(), block, block + count);
  }
  if (claimed) return;
  // Under the gate, so a reader that has claimed the link meanwhile never
  // sees its reply replaced.
  std::lock_guard gate(s.internals_->replyGate);
  if (s.internals_->replyClaims > 0) return;
  s._readData = std::move(drained);
  s.receivejudge = 0;
}

// The stream-error action: the TCP link is marked failed and its streams
// are closed. It runs under the flag lock so an open that is setting the
// flag at the same moment either sees it done or is undone by it.
void SessionOps::failTcpLink(ORVANTESDK& s) {
  std::lock_guard flag(s.internals_->tcpFlagMutex);
  s.EthernetPortEnable = 0;
  s.error = 1;
  if (auto output = s.oStream.load()) output->close();
  if (auto input = s.iStream.load()) input->close();
}

void ORVANTESDK::stream(orvante::Stream* stream, std::uint64_t eventCode) {
  switch (eventCode) {
    case orvante::stream_event::OpenCompleted:
      orvante::log("NSStreamEventOpenCompleted");
      error = 0;
      break;
    case orvante::stream_event::HasBytesAvailable:
      orvante::log("NSStreamEventHasBytesAvailable");
      receivejudge = 1;
      if (SessionOps::readsStreams(*this))
        internals_->drainSoon([this] { SessionOps::drainUnclaimedReply(*this); });
      break;
    case orvante::stream_event::HasSpaceAvailable:
      orvante::log("NSStreamEventHasSpaceAvailable");
      isAvailable = true;
      break;
    case orvante::stream_event::ErrorOccurred:
      orvante::log("NSStreamEventErrorOccurred");
      if (stream) (void)stream->streamError();
      SessionOps::failTcpLink(*this);
      break;
    default:
      break;
  }
}
