#include "shared_bus.hpp"

#include <poll.h>
#include <sys/epoll.h>
#include <time.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <limits>
#include <map>
#include <mutex>
#include <thread>

#include "../../transport/event_loop.hpp"
#include "bluez_bus.hpp"

namespace orvante::platform::bluez {
namespace {

transport::EventLoop& eventLoop() {
  return transport::EventLoop::instance();
}

std::uint32_t epollEventsOf(short pollEvents) {
  std::uint32_t events = 0;
  if (pollEvents & POLLIN) events |= EPOLLIN;
  if (pollEvents & POLLOUT) events |= EPOLLOUT;
  return events;
}

// sd-bus's absolute CLOCK_MONOTONIC deadline, in the steady clock (the same
// clock on Linux).
std::chrono::steady_clock::time_point deadlineOf(std::uint64_t microseconds) {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const std::int64_t current = static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
  const auto left = std::chrono::microseconds(static_cast<std::int64_t>(microseconds) - current);
  return std::chrono::steady_clock::now() + std::max(left, std::chrono::microseconds(0));
}

// The process's exit destroys sdbus-c++'s own backend of free-standing
// messages, which every Variant holds. A dispatch still under way on the
// loop's thread would then free Variants through freed memory, so the
// first bus registers, after that backend exists, an exit step that waits
// for the dispatch under way and lets no other begin.
class ExitGate {
 public:
  static ExitGate& instance() {
    static auto* gate = new ExitGate;  // the loop's thread may use it during exit
    return *gate;
  }

  // Once, after the backend exists, so that the step runs before the
  // backend is destroyed: both are ended as static objects are, in the
  // reverse order of their making.
  void closeAtExit() {
    struct Step {
      ~Step() { instance().close(); }
    };
    static const Step step;
  }

  // Held around every dispatch; once closed, a dispatch waits for ever.
  std::unique_lock<std::recursive_mutex> enter() {
    return std::unique_lock(mutex_);
  }

  bool closed() const { return closed_; }

 private:
  void close() {
    closed_ = true;
    // Kept for the rest of the process. A dispatch stuck in an
    // application's callback for long is not waited for.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (!mutex_.try_lock() && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  std::recursive_mutex mutex_;
  std::atomic<bool> closed_ = false;
};

}  // namespace

struct SharedBus::Loop {
  transport::EventLoop::Token running;
  std::mutex mutex;  // the two below
  std::uint64_t watch = 0;
  std::uint64_t timer = 0;
};

std::shared_ptr<SharedBus> SharedBus::acquire() {
  static std::mutex mutex;
  static auto* live = new std::map<std::string, std::weak_ptr<SharedBus>>;
  const char* named = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::string address = named ? named : "";
  std::lock_guard lock(mutex);
  if (auto held = (*live)[address].lock()) return held;
  auto connection = connectSystemBus();
  if (!connection) return nullptr;
  auto bus = std::make_shared<SharedBus>(std::move(connection), address);
  bus->start();
  (*live)[address] = bus;
  return bus;
}

SharedBus::SharedBus(std::unique_ptr<sdbus::IConnection> connection, std::string address)
    : connection_(std::move(connection)),
      address_(std::move(address)),
      loop_(std::make_unique<Loop>()) {
  makeVariantsOutliveThisBackend();
  ExitGate::instance().closeAtExit();
}

void SharedBus::start() {
  loop_->running = eventLoop().keepRunning();
  const auto poll = connection_->getEventLoopPollData();
  const std::uint64_t watch = eventLoop().watch(poll.fd, epollEventsOf(poll.events),
                                                [weak = weak_from_this()](std::uint32_t) {
                                                  if (auto bus = weak.lock()) bus->service();
                                                });
  {
    std::lock_guard lock(loop_->mutex);
    loop_->watch = watch;
  }
  post([] {});  // the first service sets the watch and the timer right
}

SharedBus::~SharedBus() {
  std::uint64_t watch, timer;
  {
    std::lock_guard lock(loop_->mutex);
    watch = std::exchange(loop_->watch, 0);
    timer = std::exchange(loop_->timer, 0);
  }
  if (watch) eventLoop().unwatch(watch);
  if (timer) eventLoop().cancel(timer);
}

bool SharedBus::isCurrent() const {
  return eventLoop().isCurrent();
}

void SharedBus::post(std::function<void()> task) {
  eventLoop().post([weak = weak_from_this(), task = std::move(task)]() mutable {
    const auto gate = ExitGate::instance().enter();
    const auto held = std::move(task);  // what it holds goes inside the gate
    auto bus = weak.lock();
    if (!bus) return;
    try {
      held();
    } catch (const sdbus::Error&) {
      // A call that could not even be sent; its caller hears nothing.
    }
    bus->service();
  });
}

bool SharedBus::run(std::function<void()> task, std::chrono::milliseconds limit) {
  if (isCurrent()) {
    try {
      task();
    } catch (const sdbus::Error&) {
    }
    return true;
  }
  if (ExitGate::instance().closed()) return false;
  auto done = std::make_shared<std::promise<void>>();
  post([task = std::move(task), done] {
    task();
    done->set_value();
  });
  return done->get_future().wait_for(limit) == std::future_status::ready;
}

void SharedBus::service() {
  const auto gate = ExitGate::instance().enter();
  try {
    while (connection_->processPendingRequest()) {
    }
  } catch (const sdbus::Error&) {
    // The connection is gone: nothing more comes from it.
    std::lock_guard lock(loop_->mutex);
    if (loop_->watch) eventLoop().unwatch(std::exchange(loop_->watch, 0));
    return;
  }
  const auto poll = connection_->getEventLoopPollData();
  std::uint64_t oldTimer;
  {
    std::lock_guard lock(loop_->mutex);
    if (loop_->watch) eventLoop().rearm(loop_->watch, epollEventsOf(poll.events));
    oldTimer = std::exchange(loop_->timer, 0);
  }
  if (oldTimer) eventLoop().cancel(oldTimer);
  if (poll.timeout_usec == std::numeric_limits<std::uint64_t>::max()) return;
  const auto timer = eventLoop().at(deadlineOf(poll.timeout_usec), [weak = weak_from_this()] {
    if (auto bus = weak.lock()) bus->service();
  });
  std::lock_guard lock(loop_->mutex);
  loop_->timer = timer;
}

}  // namespace orvante::platform::bluez
