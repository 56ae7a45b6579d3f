#pragma once
// A session field shared between the caller's thread and the library's
// event and callback threads: every read copies the value and every write replaces it
// under a private mutex that is never held across I/O.

#include <mutex>
#include <utility>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

template <class T>
class Field {
 public:
  Field() = default;
  explicit Field(T value) : value_(std::move(value)) {}
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;

  T load() const {
    std::lock_guard lock(mutex_);
    return value_;
  }

  // The old value is released after the lock is left, since releasing a
  // stream may close it.
  void store(T value) { T old = exchange(std::move(value)); }

  Field& operator=(T value) {
    store(std::move(value));
    return *this;
  }

  T exchange(T value) {
    std::lock_guard lock(mutex_);
    return std::exchange(value_, std::move(value));
  }

  // Runs f on the value in place, under the lock; f must not block.
  template <class F>
  decltype(auto) with(F&& f) {
    std::lock_guard lock(mutex_);
    return std::forward<F>(f)(value_);
  }

 private:
  mutable std::mutex mutex_;
  T value_{};
};

}  // namespace orvante

ORVANTE_API_END
