#include <orvante/testing/printer_peer.hpp>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace orvante::testing {
namespace {

bool isSocket(int fd) {
  struct stat status {};
  return ::fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode);
}

}  // namespace

PrinterPeer::PrinterPeer(int fd, Responder responder)
    : fd_(fd), socket_(isSocket(fd)), wakeFd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), responder_(std::move(responder)) {
  thread_ = std::thread([this] { run(); });
}

PrinterPeer::~PrinterPeer() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake();
  thread_.join();
  std::lock_guard lock(mutex_);
  if (fd_ >= 0) ::close(fd_);
  ::close(wakeFd_);
}

void PrinterPeer::wake() {
  const std::uint64_t one = 1;
  (void)!::write(wakeFd_, &one, sizeof one);
}

Bytes PrinterPeer::received() const {
  std::lock_guard lock(mutex_);
  return received_;
}

std::size_t PrinterPeer::receivedCount() const {
  std::lock_guard lock(mutex_);
  return received_.size();
}

bool PrinterPeer::waitForBytes(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return received_.size() >= count; });
}

bool PrinterPeer::waitForHangUp(std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return hungUp_; });
}

bool PrinterPeer::hungUp() const {
  std::lock_guard lock(mutex_);
  return hungUp_;
}

void PrinterPeer::setResponder(Responder responder) {
  std::lock_guard lock(mutex_);
  responder_ = std::move(responder);
}

void PrinterPeer::send(ByteView bytes) {
  sendLater(Bytes(bytes.begin(), bytes.end()), {});
}

void PrinterPeer::sendLater(Bytes bytes, std::chrono::milliseconds delay) {
  {
    std::lock_guard lock(mutex_);
    outgoing_.push_back({std::chrono::steady_clock::now() + delay, std::move(bytes)});
  }
  wake();
}

void PrinterPeer::pauseReading(bool paused) {
  {
    std::lock_guard lock(mutex_);
    paused_ = paused;
  }
  wake();
}

void PrinterPeer::close() {
  std::lock_guard lock(mutex_);
  if (fd_ >= 0) ::shutdown(fd_, SHUT_RDWR);
}

// The socket is only ever closed on the peer's own thread, which is the
// only one that uses it.
void PrinterPeer::reset() {
  {
    std::lock_guard lock(mutex_);
    resetRequested_ = true;
  }
  wake();
}

void PrinterPeer::resetNow() {
  std::lock_guard lock(mutex_);
  resetRequested_ = false;
  if (fd_ < 0) return;
  const linger abort{1, 0};
  ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
  ::close(fd_);
  fd_ = -1;
  hungUp_ = true;
  changed_.notify_all();
}

void PrinterPeer::resetAfter(std::size_t count) {
  std::lock_guard lock(mutex_);
  resetAfter_ = count;
}

void PrinterPeer::run() {
  std::array<std::uint8_t, 65536> block;
  for (;;) {
    int fd;
    int timeout = -1;
    short events = POLLIN;
    bool resetRequested;
    {
      std::lock_guard lock(mutex_);
      resetRequested = resetRequested_;
    }
    if (resetRequested) resetNow();
    {
      std::lock_guard lock(mutex_);
      if (stopping_) return;
      fd = fd_;
      if (paused_ || hungUp_) events = 0;
      const auto now = std::chrono::steady_clock::now();
      for (auto it = outgoing_.begin(); it != outgoing_.end();) {
        if (it->due <= now) {
          if (fd >= 0 && socket_) (void)!::send(fd, it->bytes.data(), it->bytes.size(), MSG_NOSIGNAL);
          if (fd >= 0 && !socket_) (void)!::write(fd, it->bytes.data(), it->bytes.size());
          it = outgoing_.erase(it);
        } else {
          const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(it->due - now);
          timeout = timeout < 0 ? static_cast<int>(wait.count() + 1)
                                : std::min(timeout, static_cast<int>(wait.count() + 1));
          ++it;
        }
      }
    }
    std::array<pollfd, 2> fds{{{wakeFd_, POLLIN, 0}, {fd, events, 0}}};
    if (::poll(fds.data(), fd >= 0 ? 2 : 1, timeout) < 0) continue;
    if (fds[0].revents) {
      std::uint64_t count;
      (void)!::read(wakeFd_, &count, sizeof count);
    }
    if (fd < 0 || !(fds[1].revents & (POLLIN | POLLHUP | POLLERR))) continue;
    const ssize_t count = socket_ ? ::recv(fd, block.data(), block.size(), MSG_DONTWAIT)
                                  : ::read(fd, block.data(), block.size());
    if (count <= 0) {
      if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
      std::lock_guard lock(mutex_);
      hungUp_ = true;
      changed_.notify_all();
      continue;
    }
    Responder responder;
    Bytes all;
    bool resetHere = false;
    {
      std::lock_guard lock(mutex_);
      received_.insert(received_.end(), block.begin(), block.begin() + count);
      resetHere = resetAfter_ > 0 && received_.size() >= resetAfter_;
      responder = responder_;
      if (responder) all = received_;
      changed_.notify_all();
    }
    if (resetHere) {
      resetNow();
      continue;
    }
    if (responder) responder(*this, ByteView(block.data(), count), all);
  }
}

}  // namespace orvante::testing
