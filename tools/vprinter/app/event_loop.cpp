#include "event_loop.hpp"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace orvante::vprinter {

namespace {

constexpr std::size_t kReadSize = 64 * 1024;

// Writes all of a small reply; a peer that has gone loses it.
void writeAll(int fd, const Bytes& bytes, bool socket) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = socket ? send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL)
                                   : write(fd, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN) {
      pollfd wait{fd, POLLOUT, 0};
      if (poll(&wait, 1, 1000) > 0) continue;
    }
    if (written <= 0) return;
    done += static_cast<std::size_t>(written);
  }
}

}  // namespace

EventLoop::EventLoop(Engine& engine, LoopSettings settings)
    : engine_(engine), settings_(std::move(settings)) {
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGINT);
  sigaddset(&stop, SIGTERM);
  sigprocmask(SIG_BLOCK, &stop, nullptr);
  signals_ = signalfd(-1, &stop, SFD_CLOEXEC);
  if (signals_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
}

EventLoop::~EventLoop() {
  for (const Client& client : clients_) close(client.fd);
  if (settings_.pty) {
    close(settings_.pty->master);
    close(settings_.pty->keeper);
  }
  if (settings_.listener >= 0) close(settings_.listener);
  close(signals_);
}

void EventLoop::run() {
  for (;;) {
    std::vector<pollfd> watched{{signals_, POLLIN, 0}, {settings_.listener, POLLIN, 0}};
    watched.push_back({settings_.pty ? settings_.pty->master : -1, POLLIN, 0});
    watched.push_back({controlOpen_ ? STDIN_FILENO : -1, POLLIN, 0});
    for (const Client& client : clients_) watched.push_back({client.fd, POLLIN, 0});
    if (poll(watched.data(), watched.size(), -1) < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "poll");
    }
    if (watched[0].revents) break;
    if (watched[1].revents) acceptClients();
    if (watched[2].revents) servePty();
    if (watched[3].revents) readControl();
    // Clients accepted in this pass are polled in the next.
    std::vector<Client> kept;
    for (std::size_t i = 0; i < clients_.size(); ++i) {
      Client& client = clients_[i];
      const bool polled = 4 + i < watched.size();
      if (!polled || !watched[4 + i].revents || serve(client)) {
        kept.push_back(client);
      } else {
        engine_.disconnect(client.id);
        close(client.fd);
      }
    }
    clients_ = std::move(kept);
  }
  for (const Client& client : clients_) {
    engine_.disconnect(client.id);
    close(client.fd);
  }
  clients_.clear();
}

void EventLoop::acceptClients() {
  for (;;) {
    const int fd = accept4(settings_.listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return;
    clients_.push_back({fd, nextId_++});
  }
}

bool EventLoop::serve(Client& client) {
  std::uint8_t buffer[kReadSize];
  const ssize_t count = read(client.fd, buffer, sizeof buffer);
  if (count < 0 && errno == EINTR) return true;
  if (count <= 0) return false;
  std::size_t taken = static_cast<std::size_t>(count);
  const bool limited = settings_.dropAfter > 0;
  if (limited) taken = std::min(taken, settings_.dropAfter - client.received);
  client.received += taken;
  writeAll(client.fd, engine_.feed(client.id, ByteView(buffer, taken)), true);
  // A connection cut off on purpose, as a test asked.
  return !limited || client.received < settings_.dropAfter;
}

void EventLoop::servePty() {
  std::uint8_t buffer[kReadSize];
  const ssize_t count = read(settings_.pty->master, buffer, sizeof buffer);
  if (count <= 0) return;
  writeAll(settings_.pty->master,
           engine_.feed(kPtyConnection, ByteView(buffer, static_cast<std::size_t>(count))), false);
}

void EventLoop::readControl() {
  char buffer[512];
  const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
  if (count <= 0) {
    controlOpen_ = count < 0 && errno == EINTR;
    return;
  }
  for (ssize_t i = 0; i < count; ++i) {
    if (buffer[i] == '\n') {
      control(controlLine_);
      controlLine_.clear();
    } else if (controlLine_.size() < 256) {
      controlLine_ += buffer[i];
    }
  }
}

// "status HEX" sets the status byte.
void EventLoop::control(const std::string& line) {
  unsigned status = 0;
  char extra = 0;
  if (std::sscanf(line.c_str(), " status %x %c", &status, &extra) == 1 && status <= 0xFF) {
    engine_.setStatus(static_cast<std::uint8_t>(status));
    std::fprintf(stderr, "status %02X\n", status);
  } else if (line.find_first_not_of(" \t\r") != std::string::npos) {
    std::fprintf(stderr, "unknown control line: %s (try: status 04)\n", line.c_str());
  }
}

}  // namespace orvante::vprinter
