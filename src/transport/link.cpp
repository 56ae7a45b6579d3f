#include "link.hpp"

#include <algorithm>

namespace orvante::transport {

namespace {
constexpr const char* kClosed = "the connection was closed";
}  // namespace

// --- State -----------------------------------------------------------------------

LinkState Link::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

bool Link::isClosed() const {
  return state() == LinkState::Closed;
}

std::string Link::failure() const {
  std::lock_guard lock(mutex_);
  return state_ == LinkState::Closed ? std::string(kClosed) : failure_;
}

void Link::start() {
  {
    std::lock_guard lock(mutex_);
    if (state_ != LinkState::Idle) return;
    state_ = LinkState::Opening;
  }
  doStart();
}

void Link::opened() {
  {
    std::lock_guard lock(mutex_);
    if (state_ != LinkState::Opening) return;
    state_ = LinkState::Open;
  }
  report(LinkEvent::Opened);
}

void Link::failed(const std::string& why) {
  {
    std::lock_guard lock(mutex_);
    if (state_ != LinkState::Opening && state_ != LinkState::Open) return;
    state_ = LinkState::Failed;
    failure_ = why;
  }
  report(LinkEvent::Failed);
}

void Link::ended(const std::string& why) {
  {
    std::lock_guard lock(mutex_);
    if (state_ != LinkState::Open) return;
    state_ = LinkState::Ended;
    failure_ = why;
  }
  report(LinkEvent::Ended);
}

void Link::close() {
  {
    std::lock_guard lock(mutex_);
    if (state_ == LinkState::Closed) return;
    state_ = LinkState::Closed;
  }
  signal_.notify();
  doClose();
}

// --- Events ----------------------------------------------------------------------

void Link::setListener(Listener listener) {
  std::lock_guard delivery(delivery_);
  listener_ = std::move(listener);
}

void Link::report(LinkEvent event) {
  signal_.notify();
  std::lock_guard delivery(delivery_);
  if (listener_ && !isClosed()) listener_(event);
}

// --- Without waiting ---------------------------------------------------------------

std::size_t Link::available() {
  const auto now = state();
  return now == LinkState::Open || now == LinkState::Ended ? doAvailable() : 0;
}

bool Link::writable() {
  return state() == LinkState::Open && doWritable();
}

std::int64_t Link::readSome(std::span<std::uint8_t> buffer) {
  const auto now = state();
  if (now != LinkState::Open && now != LinkState::Ended) return -1;
  const std::size_t got = buffer.empty() ? 0 : doRead(buffer);
  if (got > 0) return static_cast<std::int64_t>(got);
  const auto after = state();
  return after == LinkState::Open ? 0 : -1;
}

std::int64_t Link::writeSome(ByteView bytes) {
  if (state() != LinkState::Open) return -1;
  const std::size_t taken = bytes.empty() ? 0 : doWrite(bytes);
  if (taken > 0) return static_cast<std::int64_t>(taken);
  return state() == LinkState::Open ? 0 : -1;
}

// --- Waiting -------------------------------------------------------------------------

Wait Link::why() const {
  switch (state()) {
    case LinkState::Closed:
      return Wait::Closed;
    case LinkState::Ended:
      return Wait::Ended;
    case LinkState::Failed:
      return Wait::Failed;
    default:
      return Wait::Done;
  }
}

template <class Ready>
Wait Link::waitUntil(Deadline deadline, Ready&& ready) {
  for (;;) {
    const auto seen = signal_.generation();
    if (ready()) return Wait::Done;
    if (const Wait stopped = why(); stopped != Wait::Done) return stopped;
    if (!signal_.waitPastUntil(seen, deadline)) {
      if (ready()) return Wait::Done;
      const Wait stopped = why();
      return stopped == Wait::Done ? Wait::Deadline : stopped;
    }
  }
}

Wait Link::open(Deadline deadline) {
  start();
  return waitUntil(deadline, [&] { return state() == LinkState::Open; });
}

Wait Link::write(ByteView bytes, Deadline deadline, std::size_t& taken) {
  taken = 0;
  if (bytes.empty()) return why();
  return waitUntil(deadline, [&] {
    if (state() != LinkState::Open) return false;
    const std::size_t count = doWrite(bytes);
    taken = count;
    return count > 0;
  });
}

Wait Link::writeAll(ByteView bytes, std::chrono::milliseconds stall,
                    const std::function<void(std::size_t)>& progress, std::size_t& sent) {
  sent = 0;
  while (sent < bytes.size()) {
    std::size_t taken = 0;
    const Wait result = write(bytes.subspan(sent), std::chrono::steady_clock::now() + stall, taken);
    if (result != Wait::Done) return result;
    sent += taken;
    if (progress) progress(sent);
  }
  return flush(std::chrono::steady_clock::now() + stall);
}

Wait Link::flush(Deadline deadline) {
  return waitUntil(deadline, [&] { return state() == LinkState::Open && doFlushed(); });
}

Wait Link::read(std::span<std::uint8_t> buffer, Deadline deadline, std::size_t& got) {
  got = 0;
  return waitUntil(deadline, [&] {
    const auto now = state();
    if (now != LinkState::Open && now != LinkState::Ended) return false;
    got = doRead(buffer);
    return got > 0;
  });
}

}  // namespace orvante::transport
