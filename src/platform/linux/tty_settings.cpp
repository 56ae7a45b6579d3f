#include "tty_settings.hpp"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvante::platform::linux_devices {

std::optional<speed_t> speedOf(int baud) {
  static constexpr std::pair<int, speed_t> kSpeeds[] = {
      {1200, B1200},       {2400, B2400},       {4800, B4800},       {9600, B9600},
      {19200, B19200},     {38400, B38400},     {57600, B57600},     {115200, B115200},
      {230400, B230400},   {460800, B460800},   {500000, B500000},   {576000, B576000},
      {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
      {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000},
      {4000000, B4000000},
  };
  for (const auto& [rate, speed] : kSpeeds) {
    if (rate == baud) return speed;
  }
  return std::nullopt;
}

void setRawLine(int fd, const std::string& path, int baud, FlowControl flow) {
  const auto speed = speedOf(baud);
  if (!speed) throw std::runtime_error("the baud " + std::to_string(baud) + " is not one a tty has");
  termios line{};
  if (::tcgetattr(fd, &line) != 0) {
    throw std::runtime_error(path + " is no serial device: " + std::strerror(errno));
  }
  ::cfmakeraw(&line);
  line.c_cflag &= ~(CSIZE | PARENB | CSTOPB | CRTSCTS);
  line.c_cflag |= CS8 | CREAD | CLOCAL;
  line.c_iflag &= ~(IXON | IXOFF | IXANY);
  if (flow == FlowControl::Hardware) line.c_cflag |= CRTSCTS;
  if (flow == FlowControl::Software) line.c_iflag |= IXON | IXOFF;
  line.c_cc[VMIN] = 1;
  line.c_cc[VTIME] = 0;
  ::cfsetispeed(&line, *speed);
  ::cfsetospeed(&line, *speed);
  if (::tcsetattr(fd, TCSANOW, &line) != 0) {
    throw std::runtime_error("cannot set the line of " + path + ": " + std::strerror(errno));
  }
}

}  // namespace orvante::platform::linux_devices
