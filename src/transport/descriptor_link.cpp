#include "descriptor_link.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>

#include "connector.hpp"
#include "event_loop.hpp"

namespace orvante::transport {
namespace {

// The descriptor stays open until the link is destroyed, so a read or write
// racing close() on another thread meets a shut socket, never another file
// that reused the number.
class DescriptorLink final : public Link {
 public:
  DescriptorLink(std::string where, DescriptorKind kind, EventLoop::Token running)
      : Link(std::move(where)), kind_(kind), running_(std::move(running)) {}

  ~DescriptorLink() override {
    close();
    if (const int fd = fd_.load(); fd >= 0) ::close(fd);
  }

  // A TCP link connects on start; an adopted descriptor is open at once.
  void connectTo(std::string host, int port) {
    host_ = std::move(host);
    port_ = port;
  }
  void adopt(int fd) {
    std::lock_guard lock(mutex_);
    adopted_ = fd;
  }

 protected:
  void doStart() override {
    int adopted;
    {
      std::lock_guard lock(mutex_);
      adopted = std::exchange(adopted_, -1);
    }
    // Opened is told on the loop, as every other event of the link.
    if (adopted >= 0) {
      return EventLoop::instance().post([self = weakSelf(), adopted] {
        if (auto link = self.lock()) return link->attach(adopted);
        ::close(adopted);
      });
    }
    auto connector =
        Connector::start(host_, port_, [self = weakSelf()](int fd, const std::string& why) {
          auto link = self.lock();
          if (!link) {
            if (fd >= 0) ::close(fd);
            return;
          }
          if (fd < 0) return link->failed(why);
          link->attach(fd);
        });
    std::lock_guard lock(mutex_);
    connector_ = std::move(connector);
  }

  std::size_t doRead(std::span<std::uint8_t> buffer) override {
    const int fd = fd_.load();
    if (fd < 0) return 0;
    for (;;) {
      const ssize_t count = kind_ == DescriptorKind::Socket
                                ? ::recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT)
                                : ::read(fd, buffer.data(), buffer.size());
      if (count > 0) return static_cast<std::size_t>(count);
      if (count == 0) {
        ended();
        return 0;
      }
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) {
        if (peerClosed_) ended();
        return 0;
      }
      // A device whose line went away reports an I/O error.
      failed(kind_ == DescriptorKind::Device && errno == EIO ? "the device hung up"
                                                             : std::strerror(errno));
      return 0;
    }
  }

  std::size_t doWrite(ByteView bytes) override {
    const int fd = fd_.load();
    if (fd < 0) return 0;
    for (;;) {
      const ssize_t count =
          kind_ == DescriptorKind::Socket
              ? ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT)
              : ::write(fd, bytes.data(), bytes.size());
      if (count >= 0) return static_cast<std::size_t>(count);
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
      failed(std::strerror(errno));
      return 0;
    }
  }

  std::size_t doAvailable() override {
    const int fd = fd_.load();
    if (fd < 0) return 0;
    int count = 0;
    if (::ioctl(fd, FIONREAD, &count) == 0) return static_cast<std::size_t>(count);
    // Devices that cannot count their bytes can still say whether any wait.
    pollfd probe{fd, POLLIN, 0};
    return ::poll(&probe, 1, 0) == 1 && (probe.revents & POLLIN) ? 1 : 0;
  }

  bool doWritable() override {
    const int fd = fd_.load();
    if (fd < 0) return false;
    pollfd probe{fd, POLLOUT, 0};
    return ::poll(&probe, 1, 0) == 1 && (probe.revents & POLLOUT) &&
           !(probe.revents & (POLLERR | POLLHUP));
  }

  void doClose() override {
    std::shared_ptr<Connector> connector;
    std::uint64_t watch;
    {
      std::lock_guard lock(mutex_);
      connector = std::move(connector_);
      watch = std::exchange(watch_, 0);
    }
    if (connector) connector->cancel();
    if (watch) EventLoop::instance().unwatch(watch);
    const int fd = fd_.load();
    // Wakes a peer's reads; the descriptor itself closes with the link.
    if (fd >= 0 && kind_ == DescriptorKind::Socket) ::shutdown(fd, SHUT_RDWR);
    std::lock_guard lock(mutex_);
    if (adopted_ >= 0) ::close(std::exchange(adopted_, -1));
    running_.reset();
  }

 private:
  std::weak_ptr<DescriptorLink> weakSelf() {
    return std::static_pointer_cast<DescriptorLink>(shared_from_this());
  }

  void attach(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    std::string unwatchable;
    {
      std::lock_guard lock(mutex_);
      if (isClosed()) {
        ::close(fd);
        return;
      }
      fd_ = fd;
      watch_ = EventLoop::instance().watch(fd, EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET,
                                           [self = weakSelf()](std::uint32_t events) {
                                             if (auto link = self.lock()) link->events(events);
                                           });
      if (watch_ == 0) unwatchable = std::strerror(errno);
    }
    if (!unwatchable.empty()) return failed(unwatchable);
    opened();
  }

  // On the loop: what the descriptor reported.
  void events(std::uint32_t flags) {
    if (flags & EPOLLERR) {
      int code = 0;
      socklen_t size = sizeof code;
      if (const int fd = fd_.load(); fd >= 0 && kind_ == DescriptorKind::Socket) {
        ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &code, &size);
      }
      return failed(kind_ == DescriptorKind::Device ? std::string("the device hung up")
                                                    : std::strerror(code ? code : ECONNRESET));
    }
    if (flags & (EPOLLRDHUP | EPOLLHUP)) {
      peerClosed_ = true;
      // Nothing left to read: the input ends here; else after the last byte.
      if (doAvailable() == 0) return ended();
    }
    if (flags & EPOLLIN) readable();
    if (flags & EPOLLOUT) writableAgain();
  }

  const DescriptorKind kind_;
  std::string host_;
  int port_ = 0;
  std::atomic<int> fd_{-1};
  std::atomic<bool> peerClosed_{false};
  std::mutex mutex_;  // the four below
  int adopted_ = -1;
  EventLoop::Token running_;
  std::shared_ptr<Connector> connector_;
  std::uint64_t watch_ = 0;
};

}  // namespace

std::shared_ptr<Link> tcpLink(std::string host, int port) {
  const std::string where =
      (host.find(':') != std::string::npos ? "[" + host + "]" : host) + ":" + std::to_string(port);
  auto running = EventLoop::instance().keepRunning();
  if (!running) return nullptr;
  auto link = std::make_shared<DescriptorLink>(where, DescriptorKind::Socket, std::move(running));
  link->connectTo(std::move(host), port);
  return link;
}

std::shared_ptr<Link> descriptorLink(int fd, DescriptorKind kind, std::string where) {
  if (fd < 0) return nullptr;
  auto running = EventLoop::instance().keepRunning();
  if (!running) {
    ::close(fd);
    return nullptr;
  }
  auto link = std::make_shared<DescriptorLink>(std::move(where), kind, std::move(running));
  link->adopt(fd);
  return link;
}

}  // namespace orvante::transport
