#pragma once
// A printer at the far end of a pseudo-terminal: a tty path to open as a
// serial printer, with a PrinterPeer reading and answering on the master
// side. The line starts as a fresh tty is (echo, newline translation), so
// bytes arrive unchanged only when the opener set it raw.

#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>

#include <orvante/testing/printer_peer.hpp>

namespace orvante::testing {

class PtyPrinter {
 public:
  explicit PtyPrinter(PrinterPeer::Responder responder = nullptr) {
    int master = -1;
    char name[128] = {};
    if (::openpty(&master, &slave_, name, nullptr, nullptr) != 0) {
      throw std::runtime_error("no pseudo-terminal");
    }
    path_ = name;
    peer_ = std::make_unique<PrinterPeer>(master, std::move(responder));
  }
  ~PtyPrinter() {
    peer_.reset();
    ::close(slave_);
  }

  const std::string& path() const { return path_; }
  PrinterPeer& peer() { return *peer_; }
  // Closes the master side, as a printer unplugged: the tty hangs up.
  void unplug() { peer_.reset(); }
  // Sets the line raw from this side, as for a device whose opener does not.
  void makeRaw() {
    termios settings = line();
    ::cfmakeraw(&settings);
    ::tcsetattr(slave_, TCSANOW, &settings);
  }
  // The line's settings as the opener left them.
  termios line() const {
    termios settings{};
    ::tcgetattr(slave_, &settings);
    return settings;
  }

 private:
  // Held open so the master side never sees the line hang up between opens.
  int slave_ = -1;
  std::string path_;
  std::unique_ptr<PrinterPeer> peer_;
};

}  // namespace orvante::testing
