#pragma once
// The printer's end of sim://NAME links: orvante::Printer::open("sim://NAME")
// reaches a printer simulated in this process, without sockets or devices.
// orvante::testing::SimulatedPrinter is the ready-made one; this is the hook
// for others.

#include <cstdint>
#include <memory>
#include <string>

#include <orvante/bytes.hpp>
#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante::testing {

class SimulatedEnd {
 public:
  virtual ~SimulatedEnd() = default;
  // The bytes one link sent, in order; what is returned goes back to that
  // link. Called on the library's event loop thread, never two at once.
  virtual Bytes take(std::uint64_t connection, ByteView bytes) = 0;
  // False while the printer takes no bytes (its buffer full, or stalled):
  // writes then wait.
  virtual bool takesBytes() const { return true; }
};

// sim://NAME reaches `end` while the returned handle is held. Throws
// std::invalid_argument when the name is empty, holds a '/', or is taken.
std::shared_ptr<void> attachSimulatedEnd(const std::string& name, std::weak_ptr<SimulatedEnd> end);

// Every open link to NAME ends as a printer that closes its connection.
void hangUpSimulated(const std::string& name);

// Writes that waited because the printer took no bytes are tried again.
void wakeSimulated(const std::string& name);

}  // namespace orvante::testing

ORVANTE_API_END
