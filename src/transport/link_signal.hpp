#pragma once
// A generation counter that a link's events move on, so that a thread
// waiting for space, bytes or a failure sleeps instead of spinning.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace orvante::transport {

class LinkSignal {
 public:
  std::uint64_t generation() {
    std::lock_guard lock(mutex_);
    return generation_;
  }

  void notify() {
    {
      std::lock_guard lock(mutex_);
      ++generation_;
    }
    changed_.notify_all();
  }

  // Sleeps until the generation moves past `seen`. The slice bounds the sleep
  // for conditions that change without an event, such as a flag cleared by
  // another thread of the application.
  void waitPast(std::uint64_t seen) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::milliseconds(50), [&] { return generation_ != seen; });
  }

  // The same, but never past the deadline; false when the deadline came.
  bool waitPastUntil(std::uint64_t seen, std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    // The furthest deadline is none: converted for the wait it would overflow.
    if (deadline == std::chrono::steady_clock::time_point::max()) {
      changed_.wait(lock, [&] { return generation_ != seen; });
      return true;
    }
    return changed_.wait_until(lock, deadline, [&] { return generation_ != seen; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t generation_ = 0;
};

}  // namespace orvante::transport
