#pragma once
// At most a number of writes awaiting their replies on the bus; the rest
// wait here, in order. The bus daemon refuses a connection more than 128
// calls awaiting replies, and a write without response is a call too, so a
// long message of quick writes waits here instead of being refused. Used on
// the bus's thread only.

#include <cstddef>
#include <deque>
#include <utility>

namespace orvante::platform::bluez {

template <class Write>
class WriteThrottle {
 public:
  explicit WriteThrottle(std::size_t inFlight) : most_(inFlight) {}

  // The write, when it may go now; it waits otherwise.
  template <class Send>
  void submit(Write write, Send&& send) {
    if (inFlight_ >= most_) {
      waiting_.push_back(std::move(write));
      return;
    }
    ++inFlight_;
    send(std::move(write));
  }

  // A write's reply came: the next waiting one goes.
  template <class Send>
  void answered(Send&& send) {
    --inFlight_;
    if (waiting_.empty() || inFlight_ >= most_) return;
    Write next = std::move(waiting_.front());
    waiting_.pop_front();
    ++inFlight_;
    send(std::move(next));
  }

  std::size_t inFlight() const { return inFlight_; }
  std::size_t waiting() const { return waiting_.size(); }

 private:
  const std::size_t most_;
  std::size_t inFlight_ = 0;
  std::deque<Write> waiting_;
};

}  // namespace orvante::platform::bluez
