#include "device_files.hpp"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace orvante::platform::linux_devices {

int openDeviceFile(const std::string& path) {
  int fd;
  do {
    fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
  return fd;
}

}  // namespace orvante::platform::linux_devices
