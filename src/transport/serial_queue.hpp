#pragma once
// A serial task queue, like a serial dispatch queue: tasks run one after
// another, in the order posted, on a thread named after the queue. Queues
// of one name share one such thread, which runs only while some queue of
// that name has tasks: a hundred idle centrals cost no thread.

#include <functional>
#include <memory>
#include <string>

namespace orvante::transport {

class SerialQueue {
 public:
  explicit SerialQueue(std::string name);
  // Runs the tasks already posted (unless called from one of them).
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  void post(std::function<void()> task);
  // Waits until every task posted before the call has run, and the tasks
  // those posted in turn. Not from a task of any queue.
  void drain();
  // Whether the caller is a task of this queue.
  bool isCurrent() const;
  const std::string& name() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace orvante::transport
