// The output path: the writers that put a command's bytes on the open link.

#include <algorithm>

#include <orvante/log.hpp>
#include <orvante/session.hpp>

#include "internals.hpp"
#include "session_ops.hpp"

using orvante::Bytes;
using orvante::ByteView;

namespace {

constexpr std::int32_t kWriteChunk = 2048;
constexpr double kWritePause = 0.1;

}  // namespace

void ORVANTESDK::_printWithStream(const std::shared_ptr<orvante::OutputStream>& stream,
                                  ByteView message) {
  switch (SessionOps::currentLink(*this)) {
    case Link::Tcp:
      if (stream) (void)stream->streamStatus();
      buffer = Bytes(message.begin(), message.end());
      thread_operation(message);
      break;
    case Link::Accessory:
      buffer = Bytes(message.begin(), message.end());
      mfi_writeStream(message);
      break;
    case Link::Ble:
    case Link::None:
      break;
  }
}

// A writer gives up only on a stream that can never take bytes again
// (gone, closed or failed) and when the session is being destroyed;
// otherwise it waits as long as the link needs.
namespace {
bool writable(const std::shared_ptr<orvante::OutputStream>& stream,
              const std::atomic<bool>& destroying) {
  return stream && !destroying && !orvante::isFinished(stream->streamStatus());
}
}  // namespace

void ORVANTESDK::ethernet_writeStream(ByteView data) {
  if (SessionOps::currentLink(*this) != Link::Tcp) return;
  const auto output = oStream.load();
  auto waitUntilOpen = [&] {
    while (output->streamStatus() != orvante::StreamStatus::Open) {
      if (!writable(output, internals_->destroying)) return false;
      orvante::log("block");
      pause(kWritePause);
    }
    return true;
  };
  if (!writable(output, internals_->destroying) || !waitUntilOpen()) return;

  const auto total = static_cast<std::int32_t>(data.size());
  std::int32_t offset = 0;
  for (;;) {
    if (output->hasSpaceAvailable()) {
      const std::int32_t remaining = total - offset;
      const std::int32_t chunk = std::min(remaining, kWriteChunk);
      output->write(data.data() + offset, static_cast<std::size_t>(std::max(chunk, 0)));
      offset += chunk;
      if (total - offset <= 0) return;
      if (!waitUntilOpen()) return;
    } else {
      // Sleeps until the printer takes bytes again or the link fails.
      internals_->waitUntil(
          [&] { return output->hasSpaceAvailable() || !writable(output, internals_->destroying); });
      if (!writable(output, internals_->destroying)) return;
    }
  }
}

std::int64_t ORVANTESDK::mfi_writeStream(ByteView data) {
  const auto output = SessionOps::accessoryOutput(*this);
  std::size_t offset = 0;
  while (writable(output, internals_->destroying)) {
    if (output->hasSpaceAvailable()) {
      const std::size_t chunk = std::min(data.size() - offset, std::size_t{kWriteChunk});
      output->write(data.data() + offset, chunk);
      offset += chunk;
      pause(kWritePause);
      if (offset >= data.size()) break;
    } else {
      internals_->waitUntil(
          [&] { return output->hasSpaceAvailable() || !writable(output, internals_->destroying); });
    }
  }
  return 1;
}

// One write of the whole buffer; a partial write ends the loop all the same.
std::int32_t ORVANTESDK::MFI_OutStream(ByteView data) {
  const auto output = SessionOps::accessoryOutput(*this);
  while (writable(output, internals_->destroying)) {
    if (output->hasSpaceAvailable() &&
        static_cast<std::int32_t>(output->write(data.data(), data.size())) > 0) {
      break;
    }
    pause(kWritePause);
  }
  return 1;
}
