#include <orvante/platform/serial_queue.hpp>

#include <pthread.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

namespace orvante::transport {

struct SerialQueue::State {
  std::string name;
  std::mutex mutex;
  std::condition_variable ready;
  std::deque<std::function<void()>> tasks;
  std::uint64_t posted = 0;
  bool stopping = false;
  std::thread::id threadId;
  std::thread thread;
};

SerialQueue::SerialQueue(std::string name) : state_(std::make_shared<State>()) {
  state_->name = std::move(name);
  // The thread owns a reference, so the state outlives a queue destroyed
  // from inside one of its own tasks.
  state_->thread = std::thread([state = state_] {
    pthread_setname_np(pthread_self(), state->name.substr(0, 15).c_str());
    std::unique_lock lock(state->mutex);
    for (;;) {
      state->ready.wait(lock, [&] { return state->stopping || !state->tasks.empty(); });
      if (state->tasks.empty()) return;
      auto task = std::move(state->tasks.front());
      state->tasks.pop_front();
      lock.unlock();
      task();
      task = nullptr;
      lock.lock();
    }
  });
  std::lock_guard lock(state_->mutex);
  state_->threadId = state_->thread.get_id();
}

SerialQueue::~SerialQueue() {
  {
    std::lock_guard lock(state_->mutex);
    state_->stopping = true;
  }
  state_->ready.notify_all();
  if (isCurrent()) {
    state_->thread.detach();
  } else {
    state_->thread.join();
  }
}

void SerialQueue::post(std::function<void()> task) {
  {
    std::lock_guard lock(state_->mutex);
    state_->tasks.push_back(std::move(task));
    ++state_->posted;
  }
  state_->ready.notify_one();
}

// Tasks may post further tasks; the queue is drained once a round posts
// nothing new.
void SerialQueue::drain() {
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
  std::lock_guard lock(state_->mutex);
  return state_->threadId == std::this_thread::get_id();
}

const std::string& SerialQueue::name() const {
  return state_->name;
}

}  // namespace orvante::transport
