#pragma once
// Connecting a TCP socket without blocking anyone: the host is resolved
// (names on the event loop's resolver), each of its addresses tried in turn
// with a non-blocking connect whose end the event loop reports.

#include <functional>
#include <memory>
#include <string>

namespace orvante::transport {

class Connector {
 public:
  // On the event loop: a connected socket, or -1 and the reason.
  using Done = std::function<void(int fd, const std::string& why)>;

  // Starts at once; `done` is called once, unless cancelled first.
  static std::shared_ptr<Connector> start(std::string host, int port, Done done);

  // Any thread: `done` is not called from now on, except a call the loop
  // had already begun, and a socket being connected is closed. So `done`
  // must accept a socket for a link closed meanwhile (and close it).
  virtual void cancel() = 0;
  virtual ~Connector() = default;
};

}  // namespace orvante::transport
