#pragma once
// Clients of the orvante-vprinter process over the loopback.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string_view>

namespace orvante::vprinter::testing {

// A blocking TCP client of the printer; a receive buffer of the size
// given, if one is.
inline int connectTo(int port, int receiveBuffer = 0) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (receiveBuffer > 0) {
    setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return socket;
}

// False when the printer closed the connection.
inline bool sendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

// Asks ESC !? and waits up to `limit` for the status byte: how long it
// took, or none.
inline std::optional<std::chrono::milliseconds> statusRoundTrip(int socket,
                                                               std::chrono::milliseconds limit) {
  const auto start = std::chrono::steady_clock::now();
  if (!sendAll(socket, "\x1b!?")) return std::nullopt;
  pollfd ready{socket, POLLIN, 0};
  char status = 0;
  if (poll(&ready, 1, static_cast<int>(limit.count())) != 1 || recv(socket, &status, 1, 0) != 1) {
    return std::nullopt;
  }
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start);
}

}  // namespace orvante::vprinter::testing
