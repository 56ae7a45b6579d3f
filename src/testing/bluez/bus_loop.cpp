#include "bus_loop.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <limits>

namespace orvante::testing::bluez {
namespace {

// poll's timeout for sd-bus's absolute CLOCK_MONOTONIC deadline.
int millisecondsUntil(std::uint64_t deadline) {
  if (deadline == std::numeric_limits<std::uint64_t>::max()) return -1;
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const std::uint64_t current =
      static_cast<std::uint64_t>(now.tv_sec) * 1000000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000;
  if (deadline <= current) return 0;
  return static_cast<int>(std::min<std::uint64_t>((deadline - current + 999) / 1000, 60000));
}

}  // namespace

BusLoop::BusLoop(std::unique_ptr<sdbus::IConnection> bus)
    : bus_(std::move(bus)), wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  thread_ = std::thread([this] { run(); });
}

BusLoop::~BusLoop() {
  stop();
  ::close(wakeFd_);
}

void BusLoop::post(std::function<void()> task) {
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return;
    tasks_.push_back(std::move(task));
  }
  const std::uint64_t one = 1;
  (void)!::write(wakeFd_, &one, sizeof one);
}

void BusLoop::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    tasks_.clear();
  }
  const std::uint64_t one = 1;
  (void)!::write(wakeFd_, &one, sizeof one);
  if (thread_.joinable()) thread_.join();
}

void BusLoop::finish() {
  auto done = std::make_shared<std::promise<void>>();
  post([done] { done->set_value(); });
  // Tasks run in order: once this one has, so have the ones before it.
  done->get_future().wait_for(std::chrono::seconds(1));
  stop();
}

void BusLoop::run() {
  for (;;) {
    std::deque<std::function<void()>> tasks;
    {
      std::lock_guard lock(mutex_);
      if (stopping_) return;
      tasks.swap(tasks_);
    }
    for (auto& task : tasks) {
      try {
        task();
      } catch (const sdbus::Error&) {
        // A call that could not even be sent; its caller hears nothing.
      }
    }
    try {
      while (bus_->processPendingRequest()) {
      }
    } catch (const sdbus::Error&) {
      return;  // the connection is gone
    }
    const auto poll = bus_->getEventLoopPollData();
    pollfd fds[2] = {{poll.fd, poll.events, 0}, {wakeFd_, POLLIN, 0}};
    ::poll(fds, 2, millisecondsUntil(poll.timeout_usec));
    if (fds[1].revents & POLLIN) {
      std::uint64_t count;
      (void)!::read(wakeFd_, &count, sizeof count);
    }
  }
}

}  // namespace orvante::testing::bluez
