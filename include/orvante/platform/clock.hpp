#pragma once

#include <orvante/export.hpp>

ORVANTE_API_BEGIN
// Pauses. Every pause of the library is a sleep of the calling thread taken
// through this seam, so tests can record the schedule instead of waiting.

namespace orvante {

class Clock {
 public:
  virtual ~Clock() = default;
  // Blocks the calling thread for the given number of seconds; zero,
  // negative and NaN durations return at once.
  virtual void sleepFor(double seconds) = 0;
};

// Real sleeps.
class SystemClock final : public Clock {
 public:
  void sleepFor(double seconds) override;
};

}  // namespace orvante

ORVANTE_API_END
