#pragma once
// The printer's status byte as IPP printer-state-reasons, through PAPPL's
// status callback. A printer that does not answer is asked less and less
// often, and no more once it has never answered several times in a row, so
// that status queries never hold up jobs or clients.

#include <chrono>
#include <string>

#include <pappl/pappl.h>

#include <orvante/printer.hpp>

namespace orvante::app {

// The reasons the status byte sets, out of those it manages.
pappl_preason_t reasonsFor(const PrinterStatus& status);
// Every reason the status byte manages (cleared when the byte no longer says so).
inline constexpr pappl_preason_t kStatusReasons =
    PAPPL_PREASON_COVER_OPEN | PAPPL_PREASON_MEDIA_JAM | PAPPL_PREASON_MEDIA_EMPTY |
    PAPPL_PREASON_MARKER_SUPPLY_EMPTY;

// When to ask a printer next.
class QuerySchedule {
 public:
  using Clock = std::chrono::steady_clock;
  // Failures in a row, without one answer ever, after which it stops asking.
  static constexpr int kGiveUpAfter = 5;

  bool due(Clock::time_point now) const;
  void answered(Clock::time_point now);
  void failed(Clock::time_point now);
  bool givenUp() const { return !everAnswered_ && failures_ >= kGiveUpAfter; }

 private:
  Clock::time_point next_{};
  int failures_ = 0;
  bool everAnswered_ = false;
};

// "tcp://host:port" for a "socket://host[:port]" device; empty for other devices.
std::string networkAddressOf(const char* deviceUri);

// PAPPL's status callback; forgetPrinter is its printer deletion callback.
bool updateStatus(pappl_printer_t* printer);
void forgetPrinter(pappl_printer_t* printer, pappl_pr_driver_data_t* data);

}  // namespace orvante::app
