#pragma once
// The virtual printer behind the stand-in BlueZ: every write to a BLE
// printer's write characteristic, and every byte on a serial-profile
// connection, goes to one vprinter engine, and the engine's replies come
// back as notifications of the receive characteristic (in pieces the
// smallest MTU carries) or on the serial connection. Labels sent over the
// fake radio come out as rendered labels; queries are answered.

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <orvante/vprinter/engine.hpp>

#include "testing/bluez/fake_bluez.hpp"

namespace orvante::testing {

class BluezVirtualPrinter {
 public:
  // Takes over the fake's responders; the fake must outlive this.
  explicit BluezVirtualPrinter(FakeBluez& bluez, vprinter::Options options = {});
  ~BluezVirtualPrinter();
  BluezVirtualPrinter(const BluezVirtualPrinter&) = delete;
  BluezVirtualPrinter& operator=(const BluezVirtualPrinter&) = delete;

  // Labels printed since the last call.
  std::vector<vprinter::PrintedLabel> takePrinted();
  // Bytes the engine took over either link.
  std::size_t bytesFed() const;
  void setStatus(std::uint8_t status);

 private:
  Bytes feed(const std::string& link, ByteView bytes);

  FakeBluez& bluez_;
  mutable std::mutex mutex_;
  vprinter::Engine engine_;
  std::map<std::string, vprinter::ConnectionId> links_;
  std::size_t fed_ = 0;
};

}  // namespace orvante::testing
