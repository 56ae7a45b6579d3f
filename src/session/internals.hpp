#pragma once
// Internal state of a session that is not part of its published fields.

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <orvante/session.hpp>

#include "../transport/serial_queue.hpp"
#include "delegates.hpp"

struct ORVANTESDK::Internals {
  Internals(ORVANTESDK& session, orvante::Platform services)
      : platform(std::move(services)), delegates(session) {}

  orvante::Platform platform;
  // What the session registers as the delegate of its streams and its BLE
  // central and peripheral.
  SessionDelegates delegates;

  // Operations waiting for a reply claim the incoming bytes; the event
  // handler reads only while no claim is held, and checks under this gate.
  std::mutex replyGate;
  int replyClaims = 0;

  // Streams replaced by a new open without being closed: they stay open, as
  // the published behaviour says, until the session goes.
  std::mutex abandonedMutex;
  std::vector<orvante::StreamPair> abandoned;

  // Threads the session starts for its openers (openport, the accessory
  // open). Finished ones are joined when the next starts; the rest when the
  // session goes.
  struct Worker {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };
  std::mutex threadsMutex;
  std::vector<Worker> threads;

  template <class F>
  void startThread(F&& body) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::lock_guard lock(threadsMutex);
    std::erase_if(threads, [](Worker& worker) {
      if (!*worker.done) return false;
      worker.thread.join();
      return true;
    });
    threads.push_back({std::thread([body = std::forward<F>(body), done] {
                         body();
                         *done = true;
                       }),
                       done});
  }

  // The session's one worker: the published drain of unasked bytes and the
  // asynchronous accessory writes run there, in order, on a thread of the
  // session's own that runs only while it has work.
  orvante::transport::SerialQueue& worker() {
    std::call_once(workerMade, [this] {
      static std::atomic<int> sessions{0};
      worker_ = std::make_unique<orvante::transport::SerialQueue>("session-" +
                                                                  std::to_string(++sessions));
    });
    return *worker_;
  }
  std::once_flag workerMade;
  std::unique_ptr<orvante::transport::SerialQueue> worker_;

  // The published handler of arriving bytes reads them with pauses between
  // reads. It runs on the session's worker, so the event loop that every
  // link shares never waits for it: one drain at a time, and an event that
  // comes during a drain makes it go round once more.
  template <class Drain>
  void drainSoon(Drain drain) {
    {
      std::lock_guard lock(drainMutex);
      drainAgain = true;
      if (draining) return;
      draining = true;
    }
    worker().post([this, drain] {
      for (;;) {
        {
          std::lock_guard lock(drainMutex);
          if (!drainAgain || destroying) {
            draining = false;
            return;
          }
          drainAgain = false;
        }
        drain();
      }
    });
  }
  std::mutex drainMutex;
  bool draining = false;
  bool drainAgain = false;

  void joinThreads() {
    std::vector<Worker> finishing;
    {
      std::lock_guard lock(threadsMutex);
      finishing.swap(threads);
    }
    for (auto& worker : finishing) worker.thread.join();
    worker_.reset();  // runs what it was given first
  }

  // Held by an operation from just before it sends a query until it has
  // read the reply.
  class ReplyClaim {
   public:
    explicit ReplyClaim(Internals& internals) : internals_(internals) {
      std::lock_guard lock(internals_.replyGate);
      ++internals_.replyClaims;
    }
    ~ReplyClaim() {
      std::lock_guard lock(internals_.replyGate);
      --internals_.replyClaims;
    }
    ReplyClaim(const ReplyClaim&) = delete;
    ReplyClaim& operator=(const ReplyClaim&) = delete;

   private:
    Internals& internals_;
  };

  // The lock on the session object around the encoder's C functions, whose
  // state is global.
  std::recursive_mutex encoderLock;

  // Set while the session is being destroyed: loops that would otherwise
  // wait for ever give up.
  std::atomic<bool> destroying{false};

  // Every stream event and BLE callback moves this on; the caller's waits
  // sleep on it instead of spinning.
  orvante::transport::LinkSignal& linkSignal = delegates.signal();

  // Blocks until `ready` holds, waking on every event of the session's links.
  template <class Ready>
  void waitUntil(Ready&& ready) {
    for (;;) {
      const auto seen = linkSignal.generation();
      if (ready()) return;
      linkSignal.waitPast(seen);
    }
  }
  // Orders the stream-error action against an open's setting of the TCP
  // flag, so an error that arrives while the open runs is never undone.
  std::mutex tcpFlagMutex;
};
