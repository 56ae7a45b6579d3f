#pragma once
// The listening TCP socket of the printer.

#include <string>

namespace orvante::vprinter {

struct Endpoint {
  std::string host = "127.0.0.1";
  int port = 9100;
};

// Parses HOST:PORT (or a port alone); throws std::invalid_argument.
Endpoint parseEndpoint(const std::string& text);

// A non-blocking socket listening on the endpoint (port 0 picks a free
// one); throws std::system_error.
int listenOn(const Endpoint& endpoint);
// The port a socket is bound to.
int boundPort(int socket);

}  // namespace orvante::vprinter
