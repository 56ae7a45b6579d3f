#pragma once
// A pseudo-terminal that plays a serial-link printer: clients open its
// device path and talk to the printer through it.

#include <string>

namespace orvante::vprinter {

struct PtyPort {
  int master = -1;
  // Held open so the master never sees a hang-up between clients.
  int keeper = -1;
  std::string path;
};

// Opens a raw pseudo-terminal; throws std::system_error.
PtyPort openPty();

}  // namespace orvante::vprinter
