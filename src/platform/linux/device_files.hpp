#pragma once
// Opening printer device files (ttys, USB printer devices) for a stream
// pair, with failures told in words that name the file.

#include <string>

namespace orvante::platform::linux_devices {

// A descriptor open for reading and writing, non-blocking, never the
// controlling terminal. Throws std::runtime_error "cannot open PATH: why".
int openDeviceFile(const std::string& path);

}  // namespace orvante::platform::linux_devices
