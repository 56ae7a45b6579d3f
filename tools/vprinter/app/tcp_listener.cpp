#include "tcp_listener.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace orvante::vprinter {

Endpoint parseEndpoint(const std::string& text) {
  Endpoint endpoint;
  const auto colon = text.rfind(':');
  std::string port = text;
  if (colon != std::string::npos) {
    endpoint.host = text.substr(0, colon);
    port = text.substr(colon + 1);
  }
  if (port.empty() || port.find_first_not_of("0123456789") != std::string::npos ||
      port.size() > 5 || std::stoi(port) > 65535) {
    throw std::invalid_argument("not a HOST:PORT: " + text);
  }
  endpoint.port = std::stoi(port);
  return endpoint;
}

int listenOn(const Endpoint& endpoint) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const std::string port = std::to_string(endpoint.port);
  if (const int failed = getaddrinfo(endpoint.host.c_str(), port.c_str(), &hints, &found)) {
    throw std::runtime_error("cannot resolve " + endpoint.host + ": " + gai_strerror(failed));
  }
  int socket = -1;
  int error = 0;
  for (addrinfo* address = found; address && socket < 0; address = address->ai_next) {
    socket = ::socket(address->ai_family, address->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                      address->ai_protocol);
    if (socket < 0) {
      error = errno;
      continue;
    }
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    // A burst of connects, hundreds at once, waits in the kernel's queue
    // (the system's own limit caps it) rather than being retried seconds later.
    if (bind(socket, address->ai_addr, address->ai_addrlen) != 0 ||
        listen(socket, SOMAXCONN) != 0) {
      error = errno;
      close(socket);
      socket = -1;
    }
  }
  freeaddrinfo(found);
  if (socket < 0) {
    throw std::system_error(error, std::generic_category(),
                            "cannot listen on " + endpoint.host + ":" + port);
  }
  return socket;
}

int boundPort(int socket) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  if (address.ss_family == AF_INET6) {
    return ntohs(reinterpret_cast<sockaddr_in6*>(&address)->sin6_port);
  }
  return ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
}

}  // namespace orvante::vprinter
