#include "connector.hpp"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>

#include "event_loop.hpp"

namespace orvante::transport {
namespace {

class TcpConnector final : public Connector, public std::enable_shared_from_this<TcpConnector> {
 public:
  explicit TcpConnector(Done done) : done_(std::move(done)) {}
  ~TcpConnector() override { cancel(); }

  void begin(std::string host, int port) {
    EventLoop::instance().resolve(std::move(host), port,
                                  [self = weak_from_this()](EventLoop::Addresses addresses) {
                                    if (auto connector = self.lock())
                                      connector->tryAll(std::move(addresses));
                                  });
  }

  void cancel() override {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    dropSocket();
  }

 private:
  static EventLoop& loop() { return EventLoop::instance(); }

  // On the loop.
  void tryAll(EventLoop::Addresses addresses) {
    if (!addresses.list)
      return finish(-1, addresses.error.empty() ? "host not found" : addresses.error);
    addresses_ = std::move(addresses.list);
    next_ = addresses_.get();
    tryNext();
  }

  void tryNext() {
    for (; next_; next_ = next_->ai_next) {
      const int fd = ::socket(next_->ai_family, next_->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                              next_->ai_protocol);
      if (fd < 0) {
        lastError_ = std::strerror(errno);
        continue;
      }
      if (::connect(fd, next_->ai_addr, next_->ai_addrlen) == 0) return finish(fd, {});
      if (errno != EINPROGRESS) {
        lastError_ = std::strerror(errno);
        ::close(fd);
        continue;
      }
      // Connecting: the socket becomes writable when it is done.
      std::lock_guard lock(mutex_);
      if (cancelled_) {
        ::close(fd);
        return;
      }
      fd_ = fd;
      watch_ = loop().watch(fd, EPOLLOUT, [self = weak_from_this()](std::uint32_t) {
        if (auto connector = self.lock()) connector->attemptEnded();
      });
      if (watch_ == 0) {
        lastError_ = std::strerror(errno);
        dropSocket();
        continue;
      }
      return;
    }
    finish(-1, lastError_);
  }

  void attemptEnded() {
    int fd;
    {
      std::lock_guard lock(mutex_);
      if (cancelled_ || fd_ < 0) return;
      loop().unwatch(watch_);
      watch_ = 0;
      fd = std::exchange(fd_, -1);
    }
    int code = 0;
    socklen_t size = sizeof code;
    ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &code, &size);
    if (code == 0) return finish(fd, {});
    ::close(fd);
    lastError_ = std::strerror(code);
    next_ = next_->ai_next;
    tryNext();
  }

  void finish(int fd, const std::string& why) {
    std::unique_lock lock(mutex_);
    if (cancelled_) {
      if (fd >= 0) ::close(fd);
      return;
    }
    if (fd >= 0) {
      const int one = 1;
      ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    Done done = std::move(done_);
    done_ = nullptr;
    // Called without the lock: what `done` does (open a link, tell its
    // listeners) may take locks that a thread cancelling holds.
    lock.unlock();
    if (done) done(fd, why);
  }

  // Under the lock.
  void dropSocket() {
    if (watch_) loop().unwatch(watch_);
    watch_ = 0;
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  std::mutex mutex_;  // the four below
  Done done_;
  bool cancelled_ = false;
  int fd_ = -1;
  std::uint64_t watch_ = 0;
  std::shared_ptr<addrinfo> addresses_;  // loop thread only, like the two below
  addrinfo* next_ = nullptr;
  std::string lastError_ = "no address";
};

}  // namespace

std::shared_ptr<Connector> Connector::start(std::string host, int port, Done done) {
  auto connector = std::make_shared<TcpConnector>(std::move(done));
  connector->begin(std::move(host), port);
  return connector;
}

}  // namespace orvante::transport
