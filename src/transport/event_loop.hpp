#pragma once
// The one thread that owns the descriptors of every open link and the bus
// connection: it waits on them all with one epoll set, delivers their
// events and runs posted tasks and timers.
// It runs only while something needs it (a link holds a keep-alive, a
// descriptor is watched or a task is queued) and leaves nothing behind
// when idle: no thread, no descriptor.
//
// Callbacks and tasks run on the loop's thread one after another, so they
// must not block: a callback that waits holds up every link.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

struct addrinfo;

namespace orvante::transport {

class EventLoop {
 public:
  using Token = std::shared_ptr<void>;
  using Watcher = std::function<void(std::uint32_t epollEvents)>;
  // The addresses of a host, or empty with the reason in `error`.
  struct Addresses {
    std::shared_ptr<addrinfo> list;
    std::string error;
  };

  static EventLoop& instance();

  // Keeps the loop running while held; null when it cannot run (the process
  // is out of descriptors or threads).
  Token keepRunning();

  // Watches a descriptor (edge-triggered for the given epoll events); 0 when
  // it cannot be watched. The watcher runs on the loop's thread.
  std::uint64_t watch(int fd, std::uint32_t events, Watcher watcher);
  // Stops a watch; its watcher is never called again once the loop has
  // finished the call in progress, if any. Call before closing the
  // descriptor.
  void unwatch(std::uint64_t id);

  // Changes the epoll events a watch waits for.
  void rearm(std::uint64_t id, std::uint32_t events);

  // Runs the task on the loop's thread. The caller holds a keep-alive.
  void post(std::function<void()> task);

  // Runs the task on the loop's thread once `when` has come; 0 when the
  // loop cannot run. A timer keeps the loop running until it fires or is
  // cancelled.
  std::uint64_t at(std::chrono::steady_clock::time_point when, std::function<void()> task);
  // The timer does not fire once this returns (unless it is firing now).
  void cancel(std::uint64_t timer);

  // Whether the caller runs on the loop's thread.
  bool isCurrent() const;

  // Resolves a host and port for a stream socket and hands the addresses to
  // `done` on the loop's thread. Numeric addresses are resolved at once;
  // names by one resolver thread that the loop owns and that ends when it
  // has nothing left to resolve. `done` is called even when the name
  // cannot be resolved.
  void resolve(std::string host, int port, std::function<void(Addresses)> done);

  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

 private:
  EventLoop() = default;
  struct State;
  State* state_ = nullptr;
};

}  // namespace orvante::transport
