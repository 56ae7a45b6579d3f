#pragma once
// At most so many previews drawn at once (the cores: drawing is CPU work),
// the others waiting their turn in order of arrival. First come, first
// served keeps the slowest previews near the median under load, where a
// semaphore lets late arrivals pass and starves a few waiters.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>

namespace orvante::serve {

class RenderGate {
 public:
  explicit RenderGate(unsigned slots) : free_(slots) {}

  // Waits for a slot, in turn, at most `limit`; false when it passed.
  bool enter(std::chrono::milliseconds limit);
  void leave();

 private:
  std::mutex mutex_;
  std::condition_variable turn_;
  unsigned free_;
  std::uint64_t next_ = 0;
  std::deque<std::uint64_t> waiting_;  // tickets, oldest first
};

}  // namespace orvante::serve
