#pragma once
// A generation counter that the session's link events move on, so that the
// published waits without a time limit sleep instead of spinning.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace orvante::session {

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

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t generation_ = 0;
};

}  // namespace orvante::session
