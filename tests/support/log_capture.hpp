#pragma once
// Captures the library's log lines for the life of the object. The lines
// live in shared state, since a line may still be arriving from another
// thread while the capture ends.

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <orvante/log.hpp>

namespace orvante::testing {

class LogCapture {
 public:
  LogCapture() : state_(std::make_shared<State>()) {
    setLogSink([state = state_](std::string_view line) {
      std::lock_guard lock(state->mutex);
      state->lines.emplace_back(line);
    });
  }
  ~LogCapture() { setLogSink(nullptr); }

  std::vector<std::string> lines() const {
    std::lock_guard lock(state_->mutex);
    return state_->lines;
  }
  int count(const std::string& line) const {
    std::lock_guard lock(state_->mutex);
    return static_cast<int>(std::count(state_->lines.begin(), state_->lines.end(), line));
  }
  bool has(const std::string& line) const { return count(line) > 0; }
  // Every line, bracketed, for failure messages.
  std::string dump() const {
    std::string all;
    for (const auto& line : lines()) all += "[" + line + "]";
    return all;
  }

 private:
  struct State {
    std::mutex mutex;
    std::vector<std::string> lines;
  };
  std::shared_ptr<State> state_;
};

}  // namespace orvante::testing
