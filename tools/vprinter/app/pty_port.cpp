#include "pty_port.hpp"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace orvante::vprinter {

PtyPort openPty() {
  PtyPort pty;
  pty.master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  if (pty.master < 0 || grantpt(pty.master) != 0 || unlockpt(pty.master) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot open a pseudo-terminal");
  }
  char name[128];
  if (ptsname_r(pty.master, name, sizeof name) != 0) {
    throw std::system_error(errno, std::generic_category(), "no pseudo-terminal name");
  }
  pty.path = name;
  pty.keeper = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (pty.keeper < 0) throw std::system_error(errno, std::generic_category(), "cannot open " + pty.path);
  // Bytes pass unchanged: no echo, no line editing, no CR/LF translation.
  termios mode{};
  tcgetattr(pty.keeper, &mode);
  cfmakeraw(&mode);
  tcsetattr(pty.keeper, TCSANOW, &mode);
  return pty;
}

}  // namespace orvante::vprinter
