#include <orvante/platform/clock.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

namespace orvante {

void SystemClock::sleepFor(double seconds) {
  if (!(seconds > 0)) return;  // also NaN
  // Long pauses are taken in slices so that no duration overflows.
  constexpr double kSlice = 86400.0;
  while (seconds > 0) {
    const double now = std::min(seconds, kSlice);
    std::this_thread::sleep_for(std::chrono::duration<double>(now));
    if (std::isinf(seconds)) continue;
    seconds -= now;
  }
}

}  // namespace orvante
