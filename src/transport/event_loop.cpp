#include "event_loop.hpp"

#include <netdb.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <vector>

namespace orvante::transport {

namespace {

constexpr std::uint64_t kWakeId = 0;

struct Resolution {
  std::string host;
  int port;
  std::function<void(EventLoop::Addresses)> done;
  EventLoop::Token keepAlive;
};

EventLoop::Addresses lookUp(const std::string& host, int port, int flags, int* code) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags;
  addrinfo* found = nullptr;
  *code = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  EventLoop::Addresses result;
  if (*code == 0) {
    result.list = std::shared_ptr<addrinfo>(found, freeaddrinfo);
  } else {
    result.error = *code == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(*code);
  }
  return result;
}

}  // namespace

struct EventLoop::State {
  std::mutex mutex;  // everything below
  int epoll = -1;
  int wake = -1;
  std::thread thread;
  bool running = false;
  std::size_t tokens = 0;
  std::uint64_t nextId = kWakeId + 1;
  struct Watch {
    int fd;
    std::shared_ptr<Watcher> watcher;
  };
  std::unordered_map<std::uint64_t, Watch> watches;
  std::deque<std::function<void()>> tasks;
  std::multimap<std::chrono::steady_clock::time_point,
                std::pair<std::uint64_t, std::function<void()>>>
      timers;
  std::thread::id loopThread;

  std::deque<Resolution> resolutions;
  std::thread resolver;
  bool resolving = false;

  void wakeLoop() {
    const std::uint64_t one = 1;
    if (wake >= 0) (void)!::write(wake, &one, sizeof one);
  }

  bool idle() const { return tokens == 0 && watches.empty() && tasks.empty() && timers.empty(); }

  // Under the mutex: the timers that are due, taken out.
  std::vector<std::function<void()>> dueTimers() {
    std::vector<std::function<void()>> due;
    const auto now = std::chrono::steady_clock::now();
    while (!timers.empty() && timers.begin()->first <= now) {
      due.push_back(std::move(timers.begin()->second.second));
      timers.erase(timers.begin());
    }
    return due;
  }

  // Under the mutex: epoll's wait until the next timer, in milliseconds.
  int waitMilliseconds() const {
    if (timers.empty()) return -1;
    const auto left = timers.begin()->first - std::chrono::steady_clock::now();
    if (left <= std::chrono::steady_clock::duration::zero()) return 0;
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::min<long long>(ms, 60000));
  }

  // Under the mutex. False when the loop cannot run.
  bool start() {
    if (running) return true;
    epoll = ::epoll_create1(EPOLL_CLOEXEC);
    wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event wakeEvent{};
    wakeEvent.events = EPOLLIN;
    wakeEvent.data.u64 = kWakeId;
    if (epoll < 0 || wake < 0 || ::epoll_ctl(epoll, EPOLL_CTL_ADD, wake, &wakeEvent) != 0) {
      closeDescriptors();
      return false;
    }
    try {
      thread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
      closeDescriptors();
      return false;
    }
    running = true;
    return true;
  }

  void closeDescriptors() {
    if (epoll >= 0) ::close(epoll);
    if (wake >= 0) ::close(wake);
    epoll = wake = -1;
  }

  void run() {
    std::unique_lock lock(mutex);
    loopThread = std::this_thread::get_id();
    const int poller = epoll;
    const int waker = wake;
    for (;;) {
      if (auto due = dueTimers(); !due.empty()) {
        lock.unlock();
        for (auto& task : due) task();
        due.clear();
        lock.lock();
        continue;
      }
      if (!tasks.empty()) {
        std::deque<std::function<void()>> batch;
        batch.swap(tasks);
        lock.unlock();
        for (auto& task : batch) task();
        batch.clear();  // whatever the tasks held goes before the lock is taken
        lock.lock();
        continue;
      }
      if (idle()) break;
      const int timeout = waitMilliseconds();
      lock.unlock();
      std::array<epoll_event, 16> events;
      const int count = ::epoll_wait(poller, events.data(), events.size(), timeout);
      for (int i = 0; i < count; ++i) {
        if (events[i].data.u64 == kWakeId) {
          std::uint64_t drained;
          (void)!::read(waker, &drained, sizeof drained);
          continue;
        }
        std::shared_ptr<Watcher> watcher;
        {
          std::lock_guard found(mutex);
          if (auto at = watches.find(events[i].data.u64); at != watches.end()) {
            watcher = at->second.watcher;
          }
        }
        if (watcher) (*watcher)(events[i].events);
      }
      lock.lock();
    }
    // Idle: the thread ends here, on its own, and the next link starts
    // another.
    running = false;
    loopThread = {};
    closeDescriptors();
    thread.detach();
  }

  void resolveNames() {
    std::unique_lock lock(mutex);
    while (!resolutions.empty()) {
      Resolution next = std::move(resolutions.front());
      resolutions.pop_front();
      lock.unlock();
      int code = 0;
      auto addresses = lookUp(next.host, next.port, 0, &code);
      {
        std::lock_guard posting(mutex);
        tasks.push_back([done = std::move(next.done), addresses = std::move(addresses)]() mutable {
          done(std::move(addresses));
        });
        wakeLoop();
      }
      next.keepAlive.reset();  // after the task is queued, before the lock is taken
      lock.lock();
    }
    resolving = false;
    resolver.detach();
  }
};

EventLoop& EventLoop::instance() {
  // Never destroyed: links may still be closing while the process exits.
  static EventLoop* const loop = [] {
    auto* made = new EventLoop;
    made->state_ = new State;
    return made;
  }();
  return *loop;
}

EventLoop::Token EventLoop::keepRunning() {
  State& state = *state_;
  std::lock_guard lock(state.mutex);
  if (!state.start()) return nullptr;
  ++state.tokens;
  return Token(static_cast<void*>(state_), [](void* held) {
    auto& owner = *static_cast<State*>(held);
    std::lock_guard release(owner.mutex);
    if (--owner.tokens == 0) owner.wakeLoop();
  });
}

std::uint64_t EventLoop::watch(int fd, std::uint32_t events, Watcher watcher) {
  State& state = *state_;
  std::lock_guard lock(state.mutex);
  if (!state.start()) return 0;
  const std::uint64_t id = state.nextId++;
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  if (::epoll_ctl(state.epoll, EPOLL_CTL_ADD, fd, &event) != 0) return 0;
  state.watches.emplace(id, State::Watch{fd, std::make_shared<Watcher>(std::move(watcher))});
  return id;
}

void EventLoop::unwatch(std::uint64_t id) {
  State& state = *state_;
  std::shared_ptr<Watcher> gone;  // released outside the lock
  std::lock_guard lock(state.mutex);
  auto at = state.watches.find(id);
  if (at == state.watches.end()) return;
  gone = std::move(at->second.watcher);
  // An event already collected for it finds no watcher.
  ::epoll_ctl(state.epoll, EPOLL_CTL_DEL, at->second.fd, nullptr);
  state.watches.erase(at);
  state.wakeLoop();
}

void EventLoop::rearm(std::uint64_t id, std::uint32_t events) {
  State& state = *state_;
  std::lock_guard lock(state.mutex);
  auto at = state.watches.find(id);
  if (at == state.watches.end()) return;
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  ::epoll_ctl(state.epoll, EPOLL_CTL_MOD, at->second.fd, &event);
}

std::uint64_t EventLoop::at(std::chrono::steady_clock::time_point when,
                            std::function<void()> task) {
  State& state = *state_;
  std::lock_guard lock(state.mutex);
  if (!state.start()) return 0;
  const std::uint64_t id = state.nextId++;
  state.timers.emplace(when, std::make_pair(id, std::move(task)));
  state.wakeLoop();
  return id;
}

void EventLoop::cancel(std::uint64_t timer) {
  State& state = *state_;
  std::function<void()> gone;  // released outside the lock
  std::lock_guard lock(state.mutex);
  for (auto it = state.timers.begin(); it != state.timers.end(); ++it) {
    if (it->second.first != timer) continue;
    gone = std::move(it->second.second);
    state.timers.erase(it);
    state.wakeLoop();
    return;
  }
}

bool EventLoop::isCurrent() const {
  State& state = *state_;
  std::lock_guard lock(state.mutex);
  return state.running && state.loopThread == std::this_thread::get_id();
}

void EventLoop::post(std::function<void()> task) {
  State& state = *state_;
  std::lock_guard lock(state.mutex);
  if (!state.start()) return;
  state.tasks.push_back(std::move(task));
  state.wakeLoop();
}

void EventLoop::resolve(std::string host, int port, std::function<void(Addresses)> done) {
  int code = 0;
  auto numeric = lookUp(host, port, AI_NUMERICHOST | AI_NUMERICSERV, &code);
  if (code != EAI_NONAME) {
    post([done = std::move(done), numeric = std::move(numeric)]() mutable {
      done(std::move(numeric));
    });
    return;
  }
  auto keepAlive = keepRunning();
  State& state = *state_;
  std::lock_guard lock(state.mutex);
  state.resolutions.push_back({std::move(host), port, std::move(done), std::move(keepAlive)});
  if (state.resolving) return;
  try {
    state.resolver = std::thread([&state] { state.resolveNames(); });
    state.resolving = true;
  } catch (const std::system_error&) {
    Resolution failed = std::move(state.resolutions.back());
    state.resolutions.pop_back();
    Addresses none;
    none.error = "no thread to resolve the printer's name";
    state.tasks.push_back([done = std::move(failed.done), none]() mutable { done(none); });
    state.wakeLoop();
  }
}

}  // namespace orvante::transport
