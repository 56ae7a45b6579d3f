#include "render_gate.hpp"

#include <algorithm>

namespace orvante::serve {

bool RenderGate::enter(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  const std::uint64_t ticket = next_++;
  waiting_.push_back(ticket);
  const bool mine = turn_.wait_for(lock, limit, [&] { return free_ > 0 && waiting_.front() == ticket; });
  if (!mine) {
    waiting_.erase(std::find(waiting_.begin(), waiting_.end(), ticket));
    turn_.notify_all();  // the next in line may be at the front now
    return false;
  }
  waiting_.pop_front();
  --free_;
  if (free_ > 0 && !waiting_.empty()) turn_.notify_all();
  return true;
}

void RenderGate::leave() {
  {
    std::lock_guard lock(mutex_);
    ++free_;
  }
  turn_.notify_all();
}

}  // namespace orvante::serve
