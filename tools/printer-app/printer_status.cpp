#include "printer_status.hpp"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>

#include "printer_device.hpp"

namespace orvante::app {

namespace {

using namespace std::chrono_literals;

constexpr auto kConnectTimeout = 1000ms;
constexpr auto kReplyTimeout = 500ms;
constexpr auto kFirstBackOff = 2s;
constexpr auto kLongestBackOff = 60s;

struct PrinterState {
  QuerySchedule schedule;
  bool pausedByStatus = false;  // we paused it, so we may resume it
};

std::mutex statesMutex;
std::map<int, PrinterState> states;

}  // namespace

pappl_preason_t reasonsFor(const PrinterStatus& status) {
  pappl_preason_t reasons = PAPPL_PREASON_NONE;
  if (status.headOpen()) reasons |= PAPPL_PREASON_COVER_OPEN;
  if (status.paperJam()) reasons |= PAPPL_PREASON_MEDIA_JAM;
  if (status.outOfPaper()) reasons |= PAPPL_PREASON_MEDIA_EMPTY;
  if (status.outOfRibbon()) reasons |= PAPPL_PREASON_MARKER_SUPPLY_EMPTY;
  return reasons;
}

bool QuerySchedule::due(Clock::time_point now) const {
  return !givenUp() && now >= next_;
}

void QuerySchedule::answered(Clock::time_point now) {
  failures_ = 0;
  everAnswered_ = true;
  next_ = now;
}

void QuerySchedule::failed(Clock::time_point now) {
  ++failures_;
  auto wait = kFirstBackOff * (1 << std::min(failures_ - 1, 5));
  next_ = now + std::min<Clock::duration>(wait, kLongestBackOff);
}

std::string networkAddressOf(const char* deviceUri) {
  std::string address = printerAddressOf(deviceUri);
  return address.starts_with("tcp://") ? address : std::string{};
}

bool updateStatus(pappl_printer_t* printer) {
  const std::string address = networkAddressOf(papplPrinterGetDeviceURI(printer));
  if (address.empty()) return true;  // only network printers are asked

  const int id = papplPrinterGetID(printer);
  {
    std::lock_guard lock(statesMutex);
    if (!states[id].schedule.due(QuerySchedule::Clock::now())) return true;
  }

  PrinterStatus status;
  bool reached = false;
  bool answered = false;
  try {
    auto link = Printer::open(address, kConnectTimeout);
    reached = true;
    status = link.status(kReplyTimeout);
    answered = true;
  } catch (const std::exception& error) {
    papplLogPrinter(printer, PAPPL_LOGLEVEL_DEBUG, "No status from the printer: %s", error.what());
  }

  std::lock_guard lock(statesMutex);
  PrinterState& state = states[id];
  const auto now = QuerySchedule::Clock::now();
  if (!answered) {
    state.schedule.failed(now);
    if (!reached) papplPrinterSetReasons(printer, PAPPL_PREASON_OFFLINE, PAPPL_PREASON_NONE);
    return true;
  }
  state.schedule.answered(now);
  const pappl_preason_t add = reasonsFor(status);
  papplPrinterSetReasons(printer, add, (kStatusReasons & ~add) | PAPPL_PREASON_OFFLINE);
  // A printer paused at its panel takes no jobs: its queue waits too.
  if (status.paused() && !state.pausedByStatus) {
    state.pausedByStatus = true;
    papplPrinterPause(printer);
  } else if (!status.paused() && state.pausedByStatus) {
    state.pausedByStatus = false;
    papplPrinterResume(printer);
  }
  return true;
}

void forgetPrinter(pappl_printer_t* printer, pappl_pr_driver_data_t* /*data*/) {
  std::lock_guard lock(statesMutex);
  states.erase(papplPrinterGetID(printer));
}

}  // namespace orvante::app
