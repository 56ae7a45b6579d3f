#pragma once
// A serial task queue on one named thread, like a serial dispatch queue.
// BLE centrals deliver every callback through one.

#include <functional>
#include <memory>
#include <string>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante::transport {

class SerialQueue {
 public:
  explicit SerialQueue(std::string name);
  // Runs the tasks already posted, then ends the thread. Safe to call from
  // a task of the queue itself.
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  void post(std::function<void()> task);
  // Waits until every task posted before the call has run, and the tasks
  // those posted in turn. Not from a task.
  void drain();
  bool isCurrent() const;
  const std::string& name() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace orvante::transport

ORVANTE_API_END
