#include "serial_queue.hpp"

#include <pthread.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <future>
#include <map>
#include <mutex>
#include <thread>

namespace orvante::transport {
namespace {

struct Task {
  const void* queue;  // the SerialQueue::State it belongs to
  std::function<void()> run;
};

// The tasks of every queue of one name, in the order posted, and whether a
// thread is running them.
struct Worker {
  std::string name;
  std::mutex mutex;
  std::deque<Task> tasks;
  bool running = false;
};

// The queue whose task the calling thread runs, and its worker.
thread_local const void* runningQueue = nullptr;
thread_local const Worker* runningWorker = nullptr;

std::shared_ptr<Worker> workerNamed(const std::string& name) {
  static std::mutex mutex;
  static auto* workers = new std::map<std::string, std::weak_ptr<Worker>>;
  std::lock_guard lock(mutex);
  auto& slot = (*workers)[name];
  auto worker = slot.lock();
  if (!worker) {
    worker = std::make_shared<Worker>();
    worker->name = name;
    slot = worker;
  }
  return worker;
}

// Runs tasks until there are none; the thread then ends, detached.
void work(const std::shared_ptr<Worker>& worker) {
  pthread_setname_np(pthread_self(), worker->name.substr(0, 15).c_str());
  std::unique_lock lock(worker->mutex);
  while (!worker->tasks.empty()) {
    Task task = std::move(worker->tasks.front());
    worker->tasks.pop_front();
    lock.unlock();
    runningQueue = task.queue;
    runningWorker = worker.get();
    task.run();
    task.run = nullptr;
    runningQueue = nullptr;
    runningWorker = nullptr;
    lock.lock();
  }
  worker->running = false;
}

}  // namespace

struct SerialQueue::State {
  std::string name;
  std::shared_ptr<Worker> worker;
  std::mutex mutex;
  std::uint64_t posted = 0;
};

SerialQueue::SerialQueue(std::string name) : state_(std::make_shared<State>()) {
  state_->name = std::move(name);
  state_->worker = workerNamed(state_->name);
}

SerialQueue::~SerialQueue() {
  if (!isCurrent()) drain();
}

void SerialQueue::post(std::function<void()> task) {
  {
    std::lock_guard lock(state_->mutex);
    ++state_->posted;
  }
  auto& worker = state_->worker;
  std::lock_guard lock(worker->mutex);
  // The task holds the state, so a queue destroyed from one of its own
  // tasks outlives it.
  worker->tasks.push_back({state_.get(), [state = state_, task = std::move(task)] { task(); }});
  if (worker->running) return;
  worker->running = true;
  std::thread([worker] { work(worker); }).detach();
}

// Tasks may post further tasks; the queue is drained once a round posts
// nothing new.
void SerialQueue::drain() {
  if (runningWorker == state_->worker.get()) {
    // A task of another queue of this name: waiting for the shared thread
    // would wait for itself, so this queue's tasks run here, in order.
    for (;;) {
      std::function<void()> next;
      {
        std::lock_guard lock(state_->worker->mutex);
        auto& tasks = state_->worker->tasks;
        for (auto it = tasks.begin(); it != tasks.end(); ++it) {
          if (it->queue != state_.get()) continue;
          next = std::move(it->run);
          tasks.erase(it);
          break;
        }
      }
      if (!next) return;
      const void* outer = runningQueue;
      runningQueue = state_.get();
      next();
      runningQueue = outer;
    }
  }
  for (;;) {
    std::uint64_t before;
    {
      std::lock_guard lock(state_->mutex);
      before = state_->posted;
    }
    std::promise<void> done;
    auto finished = done.get_future();
    post([&done] { done.set_value(); });
    finished.wait();
    std::lock_guard lock(state_->mutex);
    if (state_->posted == before + 1) return;
  }
}

bool SerialQueue::isCurrent() const {
  return runningQueue == state_.get();
}

const std::string& SerialQueue::name() const {
  return state_->name;
}

}  // namespace orvante::transport
