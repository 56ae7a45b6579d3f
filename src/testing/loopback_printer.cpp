#include <orvante/testing/loopback_printer.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace orvante::testing {
namespace {

int listenOnLoopback(int* port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(fd, 16) != 0) {
    throw std::runtime_error("cannot listen on the loopback interface");
  }
  socklen_t size = sizeof address;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  *port = ntohs(address.sin_port);
  return fd;
}

}  // namespace

LoopbackPrinter::LoopbackPrinter(PrinterPeer::Responder responder)
    : listenFd_(listenOnLoopback(&port_)),
      wakeFd_(eventfd(0, EFD_CLOEXEC)),
      responder_(std::move(responder)) {
  thread_ = std::thread([this] { run(); });
}

LoopbackPrinter::~LoopbackPrinter() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  const std::uint64_t one = 1;
  (void)!::write(wakeFd_, &one, sizeof one);
  thread_.join();
  ::close(listenFd_);
  ::close(wakeFd_);
}

void LoopbackPrinter::run() {
  for (;;) {
    std::array<pollfd, 2> fds{{{listenFd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}}};
    ::poll(fds.data(), fds.size(), -1);
    std::lock_guard lock(mutex_);
    if (stopping_) return;
    if (!(fds[0].revents & POLLIN)) continue;
    const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    connections_.push_back(std::make_shared<PrinterPeer>(fd, responder_));
    accepted_.notify_all();
  }
}

std::shared_ptr<PrinterPeer> LoopbackPrinter::connection(std::size_t index,
                                                         std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  if (!accepted_.wait_for(lock, timeout, [&] { return connections_.size() > index; })) {
    return nullptr;
  }
  return connections_[index];
}

std::size_t LoopbackPrinter::connectionCount() const {
  std::lock_guard lock(mutex_);
  return connections_.size();
}

Bytes LoopbackPrinter::received() const {
  std::lock_guard lock(mutex_);
  return connections_.empty() ? Bytes{} : connections_.front()->received();
}

bool LoopbackPrinter::waitForBytes(std::size_t count) {
  auto first = connection(0);
  return first && first->waitForBytes(count);
}

int refusedPort() {
  int port = 0;
  const int fd = listenOnLoopback(&port);
  ::close(fd);
  return port;
}

}  // namespace orvante::testing
