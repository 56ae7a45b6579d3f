#pragma once
// A tty set raw for a printer: a baud, 8 data bits, no parity, one stop
// bit, the receiver on, modem lines ignored, and the flow control asked for.

#include <optional>
#include <termios.h>

#include <orvante/platform/serial_printers.hpp>

namespace orvante::platform::linux_devices {

// The termios speed of a baud; none when the system has no such speed.
std::optional<speed_t> speedOf(int baud);

// Sets the tty's line. Throws std::runtime_error naming the path when the
// descriptor is no tty or the setting is refused.
void setRawLine(int fd, const std::string& path, int baud, FlowControl flow);

}  // namespace orvante::platform::linux_devices
