#pragma once
// The front end's one thread: a poll loop over the listening socket, the
// client connections, the pseudo-terminal, control lines on standard
// input and a signalfd for SIGINT and SIGTERM.

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <orvante/vprinter/engine.hpp>

#include "pty_port.hpp"

namespace orvante::vprinter {

struct LoopSettings {
  int listener = -1;
  std::optional<PtyPort> pty;
  // Close each connection once it has sent this many bytes (0: never).
  std::size_t dropAfter = 0;
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
  struct Client {
    int fd;
    ConnectionId id;
    std::size_t received = 0;
  };

  void acceptClients();
  // False when the client is gone.
  bool serve(Client& client);
  void servePty();
  void readControl();
  void control(const std::string& line);

  Engine& engine_;
  LoopSettings settings_;
  int signals_ = -1;
  bool controlOpen_ = true;
  std::string controlLine_;
  std::vector<Client> clients_;
  ConnectionId nextId_ = 1;
};

// The pseudo-terminal's connection in the journal.
inline constexpr ConnectionId kPtyConnection = 0;

}  // namespace orvante::vprinter
