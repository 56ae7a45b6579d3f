#include "network_device.hpp"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace orvante::app {

namespace {

constexpr int kConnectTimeoutMs = 5000;
constexpr int kReadTimeoutMs = 2000;
// A printer that takes no byte for this long has stopped.
constexpr int kStallTimeoutMs = 30000;

thread_local std::string lastProblem;

struct Connection {
  int fd = -1;
  std::string address;
  std::string problem;  // why fd is -1
};

int connectWithin(const char* host, int port, int timeoutMs, std::string& problem) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const std::string service = std::to_string(port);
  if (const int error = getaddrinfo(host, service.c_str(), &hints, &found); error != 0) {
    problem = gai_strerror(error);
    return -1;
  }
  int fd = -1;
  for (addrinfo* at = found; at != nullptr && fd < 0; at = at->ai_next) {
    fd = socket(at->ai_family, at->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, at->ai_protocol);
    if (fd < 0) continue;
    int error = 0;
    if (connect(fd, at->ai_addr, at->ai_addrlen) != 0) {
      error = errno;
      if (error == EINPROGRESS) {
        pollfd waiting{fd, POLLOUT, 0};
        if (poll(&waiting, 1, timeoutMs) == 1) {
          socklen_t length = sizeof error;
          getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
        } else {
          error = ETIMEDOUT;
        }
      }
    }
    if (error != 0) {
      problem = std::strerror(error);
      close(fd);
      fd = -1;
    }
  }
  freeaddrinfo(found);
  return fd;
}

bool openDevice(pappl_device_t* device, const char* uri, const char* /*name*/) {
  auto* connection = new Connection;
  char scheme[32], user[256], host[256], resource[256];
  int port = 9100;
  if (httpSeparateURI(HTTP_URI_CODING_ALL, uri, scheme, sizeof scheme, user, sizeof user, host,
                      sizeof host, &port, resource, sizeof resource) < HTTP_URI_STATUS_OK) {
    connection->problem = "the address is not host[:port]";
  } else {
    connection->address = std::string(host) + ":" + std::to_string(port);
    connection->fd = connectWithin(host, port, kConnectTimeoutMs, connection->problem);
  }
  // Opened either way: PAPPL would otherwise hold the job and retry for ever;
  // the first write reports the problem and ends the job.
  papplDeviceSetData(device, connection);
  return true;
}

void closeDevice(pappl_device_t* device) {
  auto* connection = static_cast<Connection*>(papplDeviceGetData(device));
  if (connection == nullptr) return;
  if (connection->fd >= 0) close(connection->fd);
  delete connection;
  papplDeviceSetData(device, nullptr);
}

ssize_t fail(pappl_device_t* device, const std::string& why) {
  lastProblem = why;
  papplDeviceError(device, "%s", why.c_str());
  return -1;
}

ssize_t writeDevice(pappl_device_t* device, const void* buffer, size_t bytes) {
  auto* connection = static_cast<Connection*>(papplDeviceGetData(device));
  if (connection->fd < 0) {
    return fail(device, "The printer at " + connection->address +
                            " could not be reached: " + connection->problem + ".");
  }
  const auto* data = static_cast<const char*>(buffer);
  size_t sent = 0;
  while (sent < bytes) {
    pollfd waiting{connection->fd, POLLOUT, 0};
    const int ready = poll(&waiting, 1, kStallTimeoutMs);
    if (ready == 0) {
      return fail(device, "The printer at " + connection->address + " took no data for 30 seconds.");
    }
    if (ready < 0 && errno == EINTR) continue;
    const ssize_t count = send(connection->fd, data + sent, bytes - sent, MSG_NOSIGNAL);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count <= 0) {
      return fail(device, "The printer at " + connection->address +
                              " closed the connection: " + std::strerror(errno) + ".");
    }
    sent += static_cast<size_t>(count);
  }
  return static_cast<ssize_t>(bytes);
}

ssize_t readDevice(pappl_device_t* device, void* buffer, size_t bytes) {
  auto* connection = static_cast<Connection*>(papplDeviceGetData(device));
  if (connection->fd < 0) return -1;
  pollfd waiting{connection->fd, POLLIN, 0};
  if (poll(&waiting, 1, kReadTimeoutMs) != 1) return -1;
  return recv(connection->fd, buffer, bytes, 0);
}

}  // namespace

void useNetworkDevices() {
  papplDeviceAddScheme("socket", PAPPL_DEVTYPE_SOCKET, nullptr, openDevice, closeDevice,
                       readDevice, writeDevice, nullptr, nullptr);
}

std::string takeDeviceProblem() { return std::exchange(lastProblem, {}); }

}  // namespace orvante::app
