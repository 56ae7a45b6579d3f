#include "helper_threads.hpp"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace orvante::lzss {
namespace {

constexpr unsigned kMostHelpers = 7;
constexpr std::chrono::microseconds kAwake{200};

// The cores this process may run on.
unsigned coresAllowed() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) != 0) return std::thread::hardware_concurrency();
  return static_cast<unsigned>(CPU_COUNT(&set));
}

class Helpers {
 public:
  // The process's helpers, none on a single core. Never destroyed: they
  // wait for work until the process ends.
  static Helpers* get() {
    static Helpers* const helpers = [] {
      const unsigned cores = std::min(kMostHelpers + 1, coresAllowed());
      return cores > 1 ? new Helpers(cores - 1) : nullptr;
    }();
    return helpers;
  }

  // False where the helpers serve another caller, or belong to the parent
  // of this process (a fork keeps only the thread that called it).
  bool run(std::size_t count, const std::function<void(std::size_t)>& work) {
    if (getpid() != owner_ || busy_.test_and_set(std::memory_order_acquire)) return false;
    {
      const std::lock_guard lock(mutex_);
      work_ = &work;
      count_ = count;
      taken_.store(0, std::memory_order_relaxed);
      ++round_;
    }
    wake_.notify_all();
    take(work, count, false);
    // A part a helper still runs ends soon: waiting for it awake spares
    // the wake-up of an idle core, which can take longer than a part.
    const auto until = std::chrono::steady_clock::now() + kAwake;
    while (inside_.load(std::memory_order_acquire) != 0 && std::chrono::steady_clock::now() < until) {
    }
    std::exception_ptr failure;
    {
      std::unique_lock lock(mutex_);
      finished_.wait(lock, [&] { return inside_ == 0; });
      work_ = nullptr;
      failure = std::exchange(failure_, nullptr);
    }
    busy_.clear(std::memory_order_release);
    if (failure) std::rethrow_exception(failure);
    return true;
  }

 private:
  // As many helpers as the system lets start, up to `count`; with none,
  // callers take every part themselves.
  explicit Helpers(unsigned count) : owner_(getpid()) {
    try {
      for (unsigned k = 0; k < count; ++k) std::thread([this] { serve(); }).detach();
    } catch (const std::system_error&) {
    }
  }

  // The next part not taken yet: the caller takes them from the first on,
  // at once, and the helpers, which wake later, from the last back; each
  // side keeps neighbouring parts, and they meet where the work balances.
  std::optional<std::size_t> next(std::size_t count, bool fromLast) {
    std::uint64_t taken = taken_.load(std::memory_order_relaxed);
    for (;;) {
      const std::uint64_t front = taken & 0xFFFFFFFFu, back = taken >> 32;
      if (front + back >= count) return std::nullopt;
      const std::uint64_t more = fromLast ? taken + (std::uint64_t{1} << 32) : taken + 1;
      if (taken_.compare_exchange_weak(taken, more, std::memory_order_relaxed))
        return fromLast ? count - 1 - back : front;
    }
  }

  // Runs parts until none is left; keeps the first exception.
  void take(const std::function<void(std::size_t)>& work, std::size_t count, bool fromLast) {
    while (const auto k = next(count, fromLast)) {
      try {
        work(*k);
      } catch (...) {
        const std::lock_guard lock(mutex_);
        if (!failure_) failure_ = std::current_exception();
      }
    }
  }

  void serve() {
    std::uint64_t seen = 0;
    std::unique_lock lock(mutex_);
    for (;;) {
      wake_.wait(lock, [&] { return work_ && round_ != seen; });
      seen = round_;
      ++inside_;
      const auto* work = work_;
      const std::size_t count = count_;
      lock.unlock();
      take(*work, count, true);
      lock.lock();
      if (--inside_ == 0) finished_.notify_all();
    }
  }

  const pid_t owner_;
  std::atomic_flag busy_;
  std::mutex mutex_;
  std::condition_variable wake_, finished_;
  const std::function<void(std::size_t)>* work_ = nullptr;
  std::size_t count_ = 0;
  std::uint64_t round_ = 0;
  std::atomic<unsigned> inside_{0};  // helpers taking parts of this round, changed under `mutex_`
  std::exception_ptr failure_;
  // The parts taken from the first on (low half) and from the last back.
  std::atomic<std::uint64_t> taken_{0};
};

}  // namespace

void runSideBySide(std::size_t count, const std::function<void(std::size_t)>& work) {
  Helpers* const helpers = count > 1 ? Helpers::get() : nullptr;
  if (helpers && helpers->run(count, work)) return;
  for (std::size_t k = 0; k < count; ++k) work(k);
}

}  // namespace orvante::lzss
