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

// The most one pass reads from one descriptor: a client sending nothing
// but queries delays the others by what the engine makes of this much.
constexpr std::size_t kReadSize = 4 * 1024;

std::string secondsText(std::chrono::milliseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%g s", std::chrono::duration<double>(time).count());
  return text;
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
    if (settings_.beforeWait) settings_.beforeWait();
    std::vector<pollfd> watched{{signals_, POLLIN, 0},
                                {accepting_ ? settings_.listener : -1, POLLIN, 0}};
    // POLLOUT only while replies wait, or poll would never sleep.
    const auto events = [](const Outbox& unsent) {
      return static_cast<short>(POLLIN | (unsent.size() > 0 ? POLLOUT : 0));
    };
    watched.push_back({settings_.pty ? settings_.pty->master : -1, events(ptyUnsent_), 0});
    watched.push_back({controlOpen_ ? STDIN_FILENO : -1, POLLIN, 0});
    for (const Client& client : clients_) watched.push_back({client.fd, events(client.unsent), 0});
    if (poll(watched.data(), watched.size(), pollTimeout()) < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "poll");
    }
    if (watched[0].revents) break;
    if (watched[1].revents) acceptClients();
    if (watched[2].revents) servePty(watched[2].revents);
    if (watched[3].revents) readControl();
    // Clients accepted in this pass are polled in the next.
    const std::size_t polled = watched.size() - 4;
    std::vector<Client> kept;
    kept.reserve(clients_.size());
    for (std::size_t i = 0; i < clients_.size(); ++i) {
      const short revents = i < polled ? watched[4 + i].revents : 0;
      if (!revents || serve(clients_[i], revents)) kept.push_back(std::move(clients_[i]));
    }
    clients_ = std::move(kept);
    closeSilentClients();
  }
  for (const Client& client : clients_) {
    engine_.disconnect(client.id);
    close(client.fd);
  }
  clients_.clear();
}

// Until the first client silent inside a payload is due to be closed.
int EventLoop::pollTimeout() const {
  if (settings_.idleTimeout.count() <= 0) return -1;
  const auto now = Clock::now();
  std::optional<Clock::duration> first;
  for (const Client& client : clients_) {
    if (!engine_.insidePayload(client.id)) continue;
    const auto left = std::max(client.heard + settings_.idleTimeout - now, Clock::duration::zero());
    first = first ? std::min(*first, left) : left;
  }
  if (!first) return -1;
  return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(*first).count());
}

void EventLoop::acceptClients() {
  for (;;) {
    const int fd = accept4(settings_.listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd >= 0) {
      clients_.push_back({fd, nextId_++, Clock::now()});
      continue;
    }
    if (errno == EINTR || errno == ECONNABORTED) continue;
    // Out of descriptors: the listener goes unwatched until a client
    // closes, or poll would wake for it again at once.
    if (errno == EMFILE || errno == ENFILE) accepting_ = false;
    return;
  }
}

bool EventLoop::serve(Client& client, short events) {
  if ((events & POLLOUT) && !client.unsent.send(client.fd)) {
    closeClient(client, "");
    return false;
  }
  if (events & (POLLIN | POLLHUP | POLLERR)) return receive(client);
  return true;
}

bool EventLoop::receive(Client& client) {
  std::uint8_t buffer[kReadSize];
  const ssize_t count = read(client.fd, buffer, sizeof buffer);
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  if (count <= 0) {
    client.unsent.send(client.fd);  // what the socket still takes
    closeClient(client, "");
    return false;
  }
  client.heard = Clock::now();
  std::size_t taken = static_cast<std::size_t>(count);
  const bool limited = settings_.dropAfter > 0;
  if (limited) taken = std::min(taken, settings_.dropAfter - client.received);
  client.received += taken;
  client.unsent.add(engine_.feed(client.id, ByteView(buffer, taken)));
  if (!client.unsent.send(client.fd)) {
    closeClient(client, "");
    return false;
  }
  if (client.unsent.size() > settings_.maxUnreadBytes) {
    closeClient(client, "closed by the printer: more than " +
                            std::to_string(settings_.maxUnreadBytes) + " bytes of replies unread");
    return false;
  }
  // A connection cut off on purpose, as a test asked.
  if (limited && client.received >= settings_.dropAfter) {
    closeClient(client, "");
    return false;
  }
  return true;
}

void EventLoop::closeClient(const Client& client, const std::string& why) {
  if (!why.empty()) engine_.warn(client.id, why);
  engine_.disconnect(client.id);
  close(client.fd);
  accepting_ = true;  // a descriptor is free again
}

void EventLoop::closeSilentClients() {
  if (settings_.idleTimeout.count() <= 0) return;
  const auto now = Clock::now();
  std::erase_if(clients_, [&](const Client& client) {
    if (now - client.heard < settings_.idleTimeout || !engine_.insidePayload(client.id)) {
      return false;
    }
    closeClient(client, "closed by the printer: silent for " + secondsText(settings_.idleTimeout) +
                            " inside a payload");
    return true;
  });
}

// The pseudo-terminal stays open whoever is on its other side; replies
// nobody reads there are dropped past the unread limit.
void EventLoop::servePty(short events) {
  const int master = settings_.pty->master;
  if (events & POLLOUT) ptyUnsent_.send(master);
  if (!(events & POLLIN)) return;
  std::uint8_t buffer[kReadSize];
  const ssize_t count = read(master, buffer, sizeof buffer);
  if (count <= 0) return;
  ptyUnsent_.add(engine_.feed(kPtyConnection, ByteView(buffer, static_cast<std::size_t>(count))));
  ptyUnsent_.send(master);
  if (ptyUnsent_.size() > settings_.maxUnreadBytes) {
    engine_.warn(kPtyConnection, "replies dropped: more than " +
                                     std::to_string(settings_.maxUnreadBytes) +
                                     " bytes unread on the pseudo-terminal");
    ptyUnsent_.clear();
  }
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
