#include "socket_streams.hpp"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <system_error>
#include <thread>

namespace orvante::transport {
namespace {

enum Side { kInput = 0, kOutput = 1 };

std::string describeErrno(int code) {
  return std::strerror(code);
}

// Name resolution runs on a detached thread that owns its half of this
// state, so closing a pair never waits for a slow resolver.
struct Resolution {
  Resolution() : doneFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~Resolution() {
    if (addresses) freeaddrinfo(addresses);
    if (doneFd >= 0) ::close(doneFd);
  }
  std::mutex mutex;
  bool done = false;
  addrinfo* addresses = nullptr;
  std::string error;
  int doneFd;
};

// False when no thread could be started for it.
bool resolveInBackground(const std::shared_ptr<Resolution>& state, std::string host, int port) {
  if (state->doneFd < 0) return false;
  try {
  std::thread([state, host = std::move(host), port] {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int rc = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    {
      std::lock_guard lock(state->mutex);
      state->done = true;
      if (rc == 0) {
        state->addresses = found;
      } else {
        state->error = rc == EAI_SYSTEM ? describeErrno(errno) : gai_strerror(rc);
      }
    }
    const std::uint64_t one = 1;
    (void)!::write(state->doneFd, &one, sizeof one);
  }).detach();
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

class SocketCore : public std::enable_shared_from_this<SocketCore> {
 public:
  SocketCore(std::string host, int port) : host_(std::move(host)), port_(port) {}
  // A device descriptor (device true) is used with read and write, which
  // every pollable descriptor has, instead of the socket calls.
  SocketCore(int fd, bool device) : fd_(fd), adopted_(true), device_(device) {}

  ~SocketCore() {
    if (thread_.joinable()) {
      if (thread_.get_id() == std::this_thread::get_id()) {
        thread_.detach();
      } else {
        thread_.join();
      }
    }
    if (fd_ >= 0) ::close(fd_);
    if (wakeFd_ >= 0) ::close(wakeFd_);
    if (poller_ >= 0) ::close(poller_);
  }

  // False when the descriptors the pair needs could not be made (the
  // process is out of them): such a pair is never handed out.
  bool usable() const { return wakeFd_ >= 0 && poller_ >= 0; }

  void attach(Side side, Stream* stream) {
    std::lock_guard lock(mutex_);
    sides_[side].stream = stream;
  }

  // The stream object is going away: it is closed and never called again.
  void detach(Side side) {
    std::lock_guard delivery(delivery_);
    close(side);
    std::lock_guard lock(mutex_);
    sides_[side].stream = nullptr;
    sides_[side].delegate = nullptr;
  }

  void setDelegate(Side side, StreamDelegate* delegate) {
    std::lock_guard delivery(delivery_);
    std::lock_guard lock(mutex_);
    sides_[side].delegate = delegate;
  }

  void setScheduled(Side side, bool scheduled) {
    {
      std::lock_guard lock(mutex_);
      sides_[side].scheduled = scheduled;
    }
    wake();
  }

  StreamStatus status(Side side) const {
    std::lock_guard lock(mutex_);
    return sides_[side].status;
  }

  std::string error() const {
    std::lock_guard lock(mutex_);
    return error_;
  }

  void open(Side side) {
    bool start = false;
    {
      std::lock_guard lock(mutex_);
      auto& state = sides_[side];
      if (state.status != StreamStatus::NotOpen) return;
      // A link that failed (or ended) before this side opened fails it too,
      // even when the connection had been made.
      if (finished_ || failed_) {
        state.status = StreamStatus::Error;
        if (error_.empty()) error_ = "the link is closed";
        pending_.push_back({side, stream_event::ErrorOccurred});
      } else if (connected_) {
        state.status = StreamStatus::Open;
        pending_.push_back({side, stream_event::OpenCompleted});
      } else {
        state.status = StreamStatus::Opening;
      }
      start = !started_;
      started_ = true;
    }
    if (!start) {
      wake();
      return;
    }
    try {
      thread_ = std::thread([self = shared_from_this()] { self->run(); });
    } catch (const std::system_error& failure) {
      // No thread to deliver events: the streams fail where they stand.
      fail(failure.what(), side);
    }
  }

  void close(Side side) {
    bool finish = false;
    {
      std::lock_guard lock(mutex_);
      auto& state = sides_[side];
      if (state.status == StreamStatus::Closed) return;
      const bool wasOpen = state.status != StreamStatus::NotOpen;
      state.status = StreamStatus::Closed;
      const auto other = sides_[1 - side].status;
      finish = wasOpen && !finished_ &&
               (other == StreamStatus::Closed || other == StreamStatus::NotOpen);
      if (finish) finished_ = true;
    }
    if (finish) shutDown();
  }

  bool hasBytesAvailable() {
    if (status(kInput) != StreamStatus::Open) return false;
    return available() > 0;
  }

  std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) {
    const auto current = status(kInput);
    if (current == StreamStatus::AtEnd) return 0;
    if (current != StreamStatus::Open) return -1;
    if (maxLength == 0) return 0;
    std::shared_lock fdLock(fdMutex_);
    if (fd_ < 0) return -1;
    for (;;) {
      const ssize_t count =
          device_ ? ::read(fd_, buffer, maxLength) : ::recv(fd_, buffer, maxLength, MSG_DONTWAIT);
      if (count > 0) {
        wake();  // the end of the stream may now be due
        return count;
      }
      if (count == 0) {
        markPeerClosed();
        return 0;
      }
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) {
        pollfd waitFor{fd_, POLLIN, 0};
        ::poll(&waitFor, 1, blockingWaitMs());
        if (device_ && stopping()) return -1;
        continue;
      }
      const int code = errno;
      fdLock.unlock();
      fail(describeErrno(code), kInput);
      return -1;
    }
  }

  bool hasSpaceAvailable() {
    if (status(kOutput) != StreamStatus::Open) return false;
    std::shared_lock fdLock(fdMutex_);
    if (fd_ < 0) return false;
    pollfd probe{fd_, POLLOUT, 0};
    return ::poll(&probe, 1, 0) == 1 && (probe.revents & POLLOUT) &&
           !(probe.revents & (POLLERR | POLLHUP));
  }

  std::int64_t write(const std::uint8_t* bytes, std::size_t length) {
    if (status(kOutput) != StreamStatus::Open) return -1;
    std::shared_lock fdLock(fdMutex_);
    if (fd_ < 0) return -1;
    for (;;) {
      const ssize_t count = device_ ? ::write(fd_, bytes, length)
                                    : ::send(fd_, bytes, length, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (count >= 0) {
        {
          std::lock_guard lock(mutex_);
          spaceArmed_ = true;
        }
        wake();
        return count;
      }
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) {
        // Like a blocking stream: wait until the link takes something.
        pollfd waitFor{fd_, POLLOUT, 0};
        ::poll(&waitFor, 1, blockingWaitMs());
        if (device_ && stopping()) return -1;
        continue;
      }
      const int code = errno;
      fdLock.unlock();
      fail(describeErrno(code), kOutput);
      return -1;
    }
  }

 private:
  struct SideState {
    Stream* stream = nullptr;
    StreamDelegate* delegate = nullptr;
    StreamStatus status = StreamStatus::NotOpen;
    bool scheduled = false;
  };
  struct PendingEvent {
    int side;
    std::uint64_t event;
  };

  void wake() {
    const std::uint64_t one = 1;
    (void)!::write(wakeFd_, &one, sizeof one);
  }

  int available() {
    std::shared_lock fdLock(fdMutex_);
    if (fd_ < 0) return 0;
    int count = 0;
    if (::ioctl(fd_, FIONREAD, &count) == 0) return count;
    if (!device_) return 0;
    // A device without FIONREAD (a USB printer): readable means some.
    pollfd probe{fd_, POLLIN, 0};
    return ::poll(&probe, 1, 0) == 1 && (probe.revents & POLLIN) ? 1 : 0;
  }

  // A device has no shutdown to wake a reader or writer blocked on it, so
  // their waits look at the pair's state every so often.
  int blockingWaitMs() const { return device_ ? 100 : -1; }

  void markPeerClosed() {
    {
      std::lock_guard lock(mutex_);
      peerClosed_ = true;
    }
    wake();
  }

  // Both streams closed: unblock any reader or writer, stop the thread and
  // release the socket.
  void shutDown() {
    {
      std::shared_lock fdLock(fdMutex_);
      if (fd_ >= 0) ::shutdown(fd_, SHUT_RDWR);
    }
    wake();
    std::unique_lock fdLock(fdMutex_);
    if (fd_ >= 0) {
      ::close(fd_);
      fd_ = -1;
    }
  }

  // The link failed: every open stream goes to the error status and hears
  // of it, the side that met the failure first.
  void fail(const std::string& why, int firstSide) {
    {
      std::lock_guard lock(mutex_);
      if (failed_ || finished_) return;
      failed_ = true;
      error_ = why;
      for (int side : {firstSide, 1 - firstSide}) {
        auto& state = sides_[side];
        if (state.status == StreamStatus::NotOpen || state.status == StreamStatus::Closed) continue;
        state.status = StreamStatus::Error;
        pending_.push_back({side, stream_event::ErrorOccurred});
      }
    }
    wake();
  }

  // Delivers one event to the side's delegate, if the side still listens.
  void deliver(int side, std::uint64_t event) {
    std::lock_guard delivery(delivery_);
    StreamDelegate* delegate = nullptr;
    Stream* stream = nullptr;
    {
      std::lock_guard lock(mutex_);
      const auto& state = sides_[side];
      if (!state.scheduled || !state.delegate || !state.stream) return;
      if (state.status == StreamStatus::Closed || state.status == StreamStatus::NotOpen) return;
      delegate = state.delegate;
      stream = state.stream;
    }
    delegate->stream(stream, event);
  }

  void deliverPending() {
    for (;;) {
      PendingEvent next;
      {
        std::lock_guard lock(mutex_);
        if (pending_.empty()) return;
        next = pending_.front();
        pending_.pop_front();
      }
      deliver(next.side, next.event);
    }
  }

  bool stopping() {
    std::lock_guard lock(mutex_);
    return finished_;
  }

  void drainWake() {
    std::uint64_t count;
    (void)!::read(wakeFd_, &count, sizeof count);
  }

  // Waits for the socket or a wake-up; false when the pair was closed.
  bool waitFor(int fd, short events, short* revents) {
    for (;;) {
      std::array<pollfd, 2> fds{{{fd, events, 0}, {wakeFd_, POLLIN, 0}}};
      if (::poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR) return false;
      if (fds[1].revents) drainWake();
      if (stopping()) return false;
      deliverPending();
      if (fds[0].revents) {
        *revents = fds[0].revents;
        return true;
      }
    }
  }

  bool resolveAndConnect() {
    auto resolution = std::make_shared<Resolution>();
    if (!resolveInBackground(resolution, host_, port_)) {
      fail("no resources to resolve the printer's name", kInput);
      return false;
    }
    short revents = 0;
    if (!waitFor(resolution->doneFd, POLLIN, &revents)) return false;
    addrinfo* addresses;
    {
      // The resolver has finished with the state; the list is ours to read.
      std::lock_guard resolved(resolution->mutex);
      addresses = resolution->addresses;
      if (!addresses) {
        fail(resolution->error.empty() ? "host not found" : resolution->error, kInput);
        return false;
      }
    }
    std::string lastError = "no address";
    for (addrinfo* address = addresses; address; address = address->ai_next) {
      const int fd =
          ::socket(address->ai_family, address->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                   address->ai_protocol);
      if (fd < 0) {
        lastError = describeErrno(errno);
        continue;
      }
      int code = 0;
      if (::connect(fd, address->ai_addr, address->ai_addrlen) != 0) {
        code = errno;
        if (code == EINPROGRESS) {
          if (!waitFor(fd, POLLOUT, &revents)) {
            ::close(fd);
            return false;
          }
          socklen_t size = sizeof code;
          ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &code, &size);
        }
      }
      if (code == 0) {
        std::unique_lock fdLock(fdMutex_);
        fd_ = fd;
        return true;
      }
      lastError = describeErrno(code);
      ::close(fd);
    }
    fail(lastError, kInput);
    return false;
  }

  void becomeConnected() {
    {
      std::shared_lock fdLock(fdMutex_);
      const int one = 1;
      if (!adopted_) ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    std::lock_guard lock(mutex_);
    connected_ = true;
    for (int side : {kInput, kOutput}) {
      if (sides_[side].status != StreamStatus::Opening) continue;
      sides_[side].status = StreamStatus::Open;
      pending_.push_back({side, stream_event::OpenCompleted});
    }
  }

  // The peer ended the connection and every byte it sent was read: the
  // input reaches its end and the output can carry nothing more.
  void endOfStream() {
    {
      std::lock_guard lock(mutex_);
      if (endReported_ || failed_) return;
      endReported_ = true;
      failed_ = true;
      error_ = "the printer closed the connection";
      if (sides_[kInput].status == StreamStatus::Open) {
        sides_[kInput].status = StreamStatus::AtEnd;
        pending_.push_back({kInput, stream_event::EndEncountered});
      }
      if (sides_[kOutput].status == StreamStatus::Open) {
        sides_[kOutput].status = StreamStatus::Error;
        pending_.push_back({kOutput, stream_event::ErrorOccurred});
      }
    }
    deliverPending();
  }

  void run() {
    if (!adopted_ && !resolveAndConnect()) {
      deliverPending();
      return;
    }
    becomeConnected();
    deliverPending();

    const int poller = poller_;
    epoll_event wakeEvent{};
    wakeEvent.events = EPOLLIN;
    wakeEvent.data.fd = wakeFd_;
    int added = epoll_ctl(poller, EPOLL_CTL_ADD, wakeFd_, &wakeEvent);
    {
      // Under the descriptor lock: a close on the caller's thread must not
      // release the socket while it is being registered.
      std::shared_lock fdLock(fdMutex_);
      if (fd_ < 0) return;  // closed before the loop began
      epoll_event socketEvent{};
      socketEvent.events = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET;
      socketEvent.data.fd = fd_;
      if (added == 0) added = epoll_ctl(poller, EPOLL_CTL_ADD, fd_, &socketEvent);
    }
    if (added != 0) {
      fail(describeErrno(errno), kInput);
      deliverPending();
      return;
    }

    bool newData = available() > 0;
    for (;;) {
      // Queued events (an open completed, a failure) go before new ones.
      deliverPending();
      if (stopping()) break;
      if (newData && available() > 0) deliver(kInput, stream_event::HasBytesAvailable);
      newData = false;
      bool announceSpace = false;
      {
        std::lock_guard lock(mutex_);
        if (spaceArmed_ && sides_[kOutput].status == StreamStatus::Open) {
          announceSpace = true;
        }
      }
      if (announceSpace && hasSpaceAvailable()) {
        {
          std::lock_guard lock(mutex_);
          spaceArmed_ = false;
        }
        deliver(kOutput, stream_event::HasSpaceAvailable);
      }
      bool peerClosed;
      {
        std::lock_guard lock(mutex_);
        peerClosed = peerClosed_;
      }
      if (peerClosed && available() == 0) endOfStream();
      deliverPending();
      if (stopping()) break;

      std::array<epoll_event, 4> events;
      const int count = epoll_wait(poller, events.data(), events.size(), -1);
      if (count < 0 && errno != EINTR) {
        fail(describeErrno(errno), kInput);
        deliverPending();
        break;
      }
      for (int i = 0; i < count; ++i) {
        if (events[i].data.fd == wakeFd_) {
          drainWake();
          continue;
        }
        const auto flags = events[i].events;
        if (flags & EPOLLERR) {
          int code = 0;
          socklen_t size = sizeof code;
          {
            std::shared_lock fdLock(fdMutex_);
            if (fd_ >= 0) ::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &code, &size);
          }
          // A device reports no error code: its line hung up.
          fail(device_ ? std::string("the device hung up") : describeErrno(code ? code : ECONNRESET),
               kInput);
        }
        if (flags & EPOLLIN) newData = true;
        if (flags & (EPOLLRDHUP | EPOLLHUP)) {
          std::lock_guard lock(mutex_);
          peerClosed_ = true;
        }
      }
    }
  }

  const std::string host_;
  const int port_ = 0;
  int fd_ = -1;
  const bool adopted_ = false;
  const bool device_ = false;
  const int wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  const int poller_ = epoll_create1(EPOLL_CLOEXEC);
  std::thread thread_;

  mutable std::mutex mutex_;       // the state below
  std::recursive_mutex delivery_;  // held while a delegate runs
  std::shared_mutex fdMutex_;      // shared while the socket is used
  std::array<SideState, 2> sides_{};
  std::deque<PendingEvent> pending_;
  std::string error_;
  bool started_ = false;
  bool connected_ = false;
  bool failed_ = false;
  bool finished_ = false;
  bool peerClosed_ = false;
  bool endReported_ = false;
  bool spaceArmed_ = true;
};

class SocketInputStream final : public InputStream {
 public:
  explicit SocketInputStream(std::shared_ptr<SocketCore> core) : core_(std::move(core)) {
    core_->attach(kInput, this);
  }
  ~SocketInputStream() override { core_->detach(kInput); }

  void open() override { core_->open(kInput); }
  void close() override { core_->close(kInput); }
  StreamStatus streamStatus() const override { return core_->status(kInput); }
  std::string streamError() const override { return core_->error(); }
  void setDelegate(StreamDelegate* delegate) override { core_->setDelegate(kInput, delegate); }
  void scheduleInRunLoop() override { core_->setScheduled(kInput, true); }
  void removeFromRunLoop() override { core_->setScheduled(kInput, false); }
  bool hasBytesAvailable() override { return core_->hasBytesAvailable(); }
  std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
    return core_->read(buffer, maxLength);
  }

 private:
  std::shared_ptr<SocketCore> core_;
};

class SocketOutputStream final : public OutputStream {
 public:
  explicit SocketOutputStream(std::shared_ptr<SocketCore> core) : core_(std::move(core)) {
    core_->attach(kOutput, this);
  }
  ~SocketOutputStream() override { core_->detach(kOutput); }

  void open() override { core_->open(kOutput); }
  void close() override { core_->close(kOutput); }
  StreamStatus streamStatus() const override { return core_->status(kOutput); }
  std::string streamError() const override { return core_->error(); }
  void setDelegate(StreamDelegate* delegate) override { core_->setDelegate(kOutput, delegate); }
  void scheduleInRunLoop() override { core_->setScheduled(kOutput, true); }
  void removeFromRunLoop() override { core_->setScheduled(kOutput, false); }
  bool hasSpaceAvailable() override { return core_->hasSpaceAvailable(); }
  std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
    return core_->write(bytes, length);
  }

 private:
  std::shared_ptr<SocketCore> core_;
};

StreamPair pairOver(const std::shared_ptr<SocketCore>& core) {
  return {std::make_shared<SocketInputStream>(core), std::make_shared<SocketOutputStream>(core)};
}

}  // namespace

StreamPair connectSocketStreams(const std::string& host, int port) {
  if (host.empty() || port < 0 || port > 65535) return {};
  auto core = std::make_shared<SocketCore>(host, port);
  if (!core->usable()) return {};
  return pairOver(core);
}

StreamPair adoptSocketStreams(int fd) {
  if (fd < 0) return {};
  const int flags = ::fcntl(fd, F_GETFL);
  ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  auto core = std::make_shared<SocketCore>(fd, false);
  if (!core->usable()) return {};
  return pairOver(core);
}

StreamPair adoptDeviceStreams(int fd) {
  if (fd < 0) return {};
  const int flags = ::fcntl(fd, F_GETFL);
  ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  auto core = std::make_shared<SocketCore>(fd, true);
  if (!core->usable()) return {};
  return pairOver(core);
}

StreamPair SocketStreamFactory::createPairWithSocketToHost(const std::string& host,
                                                           std::int32_t port) {
  return connectSocketStreams(host, port);
}

}  // namespace orvante::transport
