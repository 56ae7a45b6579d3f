#include "socket_streams.hpp"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <system_error>
#include <utility>

#include "event_loop.hpp"

namespace orvante::transport {
namespace {

enum Side { kInput = 0, kOutput = 1 };
enum class Descriptor { Socket, Device };

std::string describeErrno(int code) {
  return std::strerror(code);
}

// Both streams of a pair share one core. Its descriptor is watched by the
// event loop, which delivers the pair's events; reads and writes run on the
// caller's thread.
class SocketCore : public std::enable_shared_from_this<SocketCore> {
 public:
  SocketCore(std::string host, int port, EventLoop::Token running)
      : host_(std::move(host)), port_(port), running_(std::move(running)) {}
  SocketCore(int fd, Descriptor kind, EventLoop::Token running)
      : fd_(fd), kind_(kind), adopted_(true), running_(std::move(running)) {}

  ~SocketCore() {
    if (watchId_) loop().unwatch(watchId_);
    if (fd_ >= 0) ::close(fd_);
  }

  // False when the event loop could not run for the pair (the process is
  // out of descriptors or threads): such a pair is never handed out.
  bool usable() const { return running_ != nullptr; }

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
    serviceSoon();
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
    if (start) {
      loop().post([self = weak_from_this()] {
        if (auto core = self.lock()) core->start();
      });
    }
    serviceSoon();
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
      const ssize_t count = kind_ == Descriptor::Socket ? ::recv(fd_, buffer, maxLength, MSG_DONTWAIT)
                                                       : ::read(fd_, buffer, maxLength);
      if (count > 0) {
        serviceSoon();  // the end of the stream may now be due
        return count;
      }
      if (count == 0) {
        markPeerClosed();
        return 0;
      }
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) {
        if (!waitOn(POLLIN)) return -1;
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
      const ssize_t count = kind_ == Descriptor::Socket
                                ? ::send(fd_, bytes, length, MSG_NOSIGNAL | MSG_DONTWAIT)
                                : ::write(fd_, bytes, length);
      if (count >= 0) {
        {
          std::lock_guard lock(mutex_);
          spaceArmed_ = true;
        }
        serviceSoon();
        return count;
      }
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) {
        // Like a blocking stream: wait until the link takes something.
        if (!waitOn(POLLOUT)) return -1;
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

  static EventLoop& loop() { return EventLoop::instance(); }

  // Blocks the caller until the descriptor is ready. A socket being shut
  // down wakes it; a device cannot be woken that way, so its wait is sliced
  // to notice a close. False when the pair was closed meanwhile.
  // Called with the descriptor lock shared.
  bool waitOn(short events) {
    const int slice = kind_ == Descriptor::Socket ? -1 : 100;
    for (;;) {
      pollfd waitFor{fd_, events, 0};
      if (::poll(&waitFor, 1, slice) != 0) return true;
      if (stopping()) return false;
    }
  }

  // Runs `service` on the loop once for any number of requests made before
  // it starts.
  void serviceSoon() {
    if (servicePosted_.exchange(true)) return;
    loop().post([self = weak_from_this()] {
      auto core = self.lock();
      if (!core) return;
      core->servicePosted_ = false;
      core->service();
    });
  }

  int available() {
    std::shared_lock fdLock(fdMutex_);
    if (fd_ < 0) return 0;
    int count = 0;
    if (::ioctl(fd_, FIONREAD, &count) == 0) return count;
    // Devices that cannot count their bytes can still say whether any wait.
    pollfd probe{fd_, POLLIN, 0};
    return ::poll(&probe, 1, 0) == 1 && (probe.revents & POLLIN) ? 1 : 0;
  }

  void markPeerClosed() {
    {
      std::lock_guard lock(mutex_);
      peerClosed_ = true;
    }
    serviceSoon();
  }

  // Under the descriptor lock held alone, before the descriptor changes.
  void stopWatching() {
    std::uint64_t watch;
    {
      std::lock_guard lock(mutex_);
      watch = std::exchange(watchId_, 0);
    }
    if (watch) loop().unwatch(watch);
  }

  // Both streams closed: unblock any reader or writer, stop watching and
  // release the descriptor and the loop.
  void shutDown() {
    {
      std::shared_lock fdLock(fdMutex_);
      if (fd_ >= 0 && kind_ == Descriptor::Socket) ::shutdown(fd_, SHUT_RDWR);
    }
    std::unique_lock fdLock(fdMutex_);
    stopWatching();
    if (fd_ >= 0) {
      ::close(fd_);
      fd_ = -1;
    }
    {
      std::lock_guard lock(mutex_);
      releaseLoop_ = true;
    }
    // Events already queued still go out; the loop may stop after them.
    serviceSoon();
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
    serviceSoon();
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

  // On the loop: the first open of either stream starts the pair.
  void start() {
    if (adopted_) {
      connected();
      return;
    }
    loop().resolve(host_, port_, [self = weak_from_this()](EventLoop::Addresses addresses) {
      if (auto core = self.lock()) core->connectTo(std::move(addresses));
    });
  }

  // On the loop: tries the addresses in turn, each without blocking.
  void connectTo(EventLoop::Addresses addresses) {
    if (stopping()) return;
    if (!addresses.list) {
      fail(addresses.error.empty() ? "host not found" : addresses.error, kInput);
      return;
    }
    addresses_ = std::move(addresses.list);
    nextAddress_ = addresses_.get();
    tryNextAddress();
  }

  void tryNextAddress() {
    for (; nextAddress_; nextAddress_ = nextAddress_->ai_next) {
      if (stopping()) return;
      addrinfo* address = nextAddress_;
      const int fd = ::socket(address->ai_family, address->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                              address->ai_protocol);
      if (fd < 0) {
        lastError_ = describeErrno(errno);
        continue;
      }
      if (::connect(fd, address->ai_addr, address->ai_addrlen) == 0) {
        if (takeSocket(fd)) connected();
        return;
      }
      if (errno != EINPROGRESS) {
        lastError_ = describeErrno(errno);
        ::close(fd);
        continue;
      }
      // Connecting: the socket becomes writable when it is done.
      if (takeSocket(fd)) {
        watchSocket(EPOLLOUT, [](SocketCore& core, std::uint32_t) { core.connectFinished(); });
      }
      return;
    }
    fail(lastError_, kInput);
  }

  // The socket becomes the pair's, unless the pair was closed meanwhile.
  bool takeSocket(int fd) {
    std::unique_lock fdLock(fdMutex_);
    if (stopping()) {
      ::close(fd);
      return false;
    }
    fd_ = fd;
    return true;
  }

  void connectFinished() {
    int code = 0;
    {
      std::unique_lock fdLock(fdMutex_);
      if (fd_ < 0) return;
      socklen_t size = sizeof code;
      ::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &code, &size);
      stopWatching();
      if (code != 0) {
        ::close(fd_);
        fd_ = -1;
      }
    }
    if (code == 0) {
      connected();
      return;
    }
    lastError_ = describeErrno(code);
    nextAddress_ = nextAddress_->ai_next;
    tryNextAddress();
  }

  // Watches the pair's descriptor with a handler on the loop; false (and
  // the pair failed) when it cannot be watched.
  template <class Handler>
  bool watchSocket(std::uint32_t events, Handler handler) {
    std::shared_lock fdLock(fdMutex_);
    if (fd_ < 0) return false;  // closed meanwhile
    const auto id = loop().watch(fd_, events, [self = weak_from_this(), handler](std::uint32_t got) {
      if (auto core = self.lock()) handler(*core, got);
    });
    if (id == 0) {
      const int code = errno;
      fdLock.unlock();
      fail(describeErrno(code), kInput);
      return false;
    }
    std::lock_guard lock(mutex_);
    watchId_ = id;
    return true;
  }

  void connected() {
    {
      std::shared_lock fdLock(fdMutex_);
      const int one = 1;
      if (!adopted_ && fd_ >= 0) ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    {
      std::lock_guard lock(mutex_);
      connected_ = true;
      for (int side : {kInput, kOutput}) {
        if (sides_[side].status != StreamStatus::Opening) continue;
        sides_[side].status = StreamStatus::Open;
        pending_.push_back({side, stream_event::OpenCompleted});
      }
    }
    deliverPending();
    if (watchSocket(EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET,
                    [](SocketCore& core, std::uint32_t got) { core.linkEvents(got); })) {
      newData_ = available() > 0;
    }
    service();
  }

  // On the loop: what the descriptor reported.
  void linkEvents(std::uint32_t flags) {
    if (flags & EPOLLERR) {
      int code = 0;
      socklen_t size = sizeof code;
      {
        std::shared_lock fdLock(fdMutex_);
        if (fd_ >= 0) ::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &code, &size);
      }
      // A device reports no error code: its line hung up.
      fail(kind_ == Descriptor::Device ? std::string("the device hung up")
                                       : describeErrno(code ? code : ECONNRESET),
           kInput);
    }
    if (flags & EPOLLIN) newData_ = true;
    if (flags & (EPOLLRDHUP | EPOLLHUP)) {
      std::lock_guard lock(mutex_);
      peerClosed_ = true;
    }
    service();
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

  // On the loop: delivers what is due. Queued events (an open completed, a
  // failure) go before new ones.
  void service() {
    deliverPending();
    bool connected;
    {
      std::lock_guard lock(mutex_);
      connected = connected_ && !finished_;
    }
    if (connected) {
      if (newData_ && available() > 0) deliver(kInput, stream_event::HasBytesAvailable);
      newData_ = false;
      bool announceSpace = false;
      {
        std::lock_guard lock(mutex_);
        announceSpace = spaceArmed_ && sides_[kOutput].status == StreamStatus::Open;
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
    }
    std::lock_guard lock(mutex_);
    // A closed pair lets the loop go once its last events are out.
    if (releaseLoop_ && pending_.empty()) running_.reset();
  }

  const std::string host_;
  const int port_ = 0;
  int fd_ = -1;
  const Descriptor kind_ = Descriptor::Socket;
  const bool adopted_ = false;
  EventLoop::Token running_;

  // Loop-thread state: the connection attempt and the reader's news.
  std::shared_ptr<addrinfo> addresses_;
  addrinfo* nextAddress_ = nullptr;
  std::string lastError_ = "no address";
  bool newData_ = false;
  std::atomic<bool> servicePosted_{false};

  mutable std::mutex mutex_;       // the state below
  std::recursive_mutex delivery_;  // held while a delegate runs
  std::shared_mutex fdMutex_;      // shared while the descriptor is used
  std::array<SideState, 2> sides_{};
  std::deque<PendingEvent> pending_;
  std::string error_;
  std::uint64_t watchId_ = 0;
  bool started_ = false;
  bool connected_ = false;
  bool failed_ = false;
  bool finished_ = false;
  bool peerClosed_ = false;
  bool endReported_ = false;
  bool spaceArmed_ = true;
  bool releaseLoop_ = false;
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
  auto core = std::make_shared<SocketCore>(host, port, EventLoop::instance().keepRunning());
  if (!core->usable()) return {};
  return pairOver(core);
}

namespace {

StreamPair adopt(int fd, Descriptor kind) {
  if (fd < 0) return {};
  const int flags = ::fcntl(fd, F_GETFL);
  ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  auto core = std::make_shared<SocketCore>(fd, kind, EventLoop::instance().keepRunning());
  if (!core->usable()) return {};
  return pairOver(core);
}

}  // namespace

StreamPair adoptSocketStreams(int fd) {
  return adopt(fd, Descriptor::Socket);
}

StreamPair adoptDeviceStreams(int fd) {
  return adopt(fd, Descriptor::Device);
}

StreamPair SocketStreamFactory::createPairWithSocketToHost(const std::string& host,
                                                           std::int32_t port) {
  return connectSocketStreams(host, port);
}

}  // namespace orvante::transport

namespace orvante {

StreamPair streamsOverSocket(int fd) {
  return transport::adoptSocketStreams(fd);
}

StreamPair streamsOverDevice(int fd) {
  return transport::adoptDeviceStreams(fd);
}

}  // namespace orvante
