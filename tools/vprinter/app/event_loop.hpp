#pragma once
// The front end's one thread: a poll loop over the listening socket, the
// client connections, the pseudo-terminal, control lines on standard
// input and a signalfd for SIGINT and SIGTERM. Every descriptor is
// non-blocking and each pass reads at most one buffer from each, so no
// client holds up another, nor the signals.

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <orvante/vprinter/engine.hpp>

#include "outbox.hpp"
#include "pty_port.hpp"

namespace orvante::vprinter {

struct LoopSettings {
  int listener = -1;
  std::optional<PtyPort> pty;
  // Close each connection once it has sent this many bytes (0: never).
  std::size_t dropAfter = 0;
  // A client that leaves more replies than this unread is dropped.
  std::size_t maxUnreadBytes = 1024 * 1024;
  // A client silent this long inside a payload is closed (0: never).
  std::chrono::milliseconds idleTimeout = std::chrono::seconds(30);
  // Called each time the loop is about to wait (the journal is flushed then).
  std::function<void()> beforeWait;
};

class EventLoop {
 public:
  // Blocks SIGINT and SIGTERM for the calling thread and listens for them.
  EventLoop(Engine& engine, LoopSettings settings);
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Serves until SIGINT or SIGTERM; then closes everything.
  void run();

 private:
  using Clock = std::chrono::steady_clock;

  struct Client {
    int fd;
    ConnectionId id;
    Clock::time_point heard;  // when it last sent bytes
    Outbox unsent{true};
    std::size_t received = 0;
  };

  int pollTimeout() const;
  void acceptClients();
  // False when the client is to be closed.
  bool serve(Client& client, short events);
  bool receive(Client& client);
  void closeClient(const Client& client, const std::string& why);
  void closeSilentClients();
  void servePty(short events);
  void readControl();
  void control(const std::string& line);

  Engine& engine_;
  LoopSettings settings_;
  int signals_ = -1;
  bool accepting_ = true;  // false while the process has no descriptor to spare
  bool controlOpen_ = true;
  std::string controlLine_;
  std::vector<Client> clients_;
  Outbox ptyUnsent_{false};
  ConnectionId nextId_ = 1;
};

// The pseudo-terminal's connection in the journal.
inline constexpr ConnectionId kPtyConnection = 0;

}  // namespace orvante::vprinter
