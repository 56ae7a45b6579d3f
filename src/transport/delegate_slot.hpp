#pragma once
// A delegate that callbacks on another thread reach. Setting it waits until
// a callback being delivered has returned, so a cleared delegate is never
// called again; a callback may set it from inside the delivery.

#include <mutex>



namespace orvante::transport {

template <class Delegate>
class DelegateSlot {
 public:
  explicit DelegateSlot(Delegate* delegate = nullptr) : delegate_(delegate) {}

  void set(Delegate* delegate) {
    std::lock_guard delivery(delivery_);
    std::lock_guard lock(mutex_);
    delegate_ = delegate;
  }

  Delegate* get() const {
    std::lock_guard lock(mutex_);
    return delegate_;
  }

  // Runs f with the delegate, if there is one, holding off any change.
  template <class F>
  void deliver(F&& f) {
    std::lock_guard delivery(delivery_);
    if (Delegate* delegate = get()) f(*delegate);
  }

 private:
  std::recursive_mutex delivery_;
  mutable std::mutex mutex_;
  Delegate* delegate_;
};

}  // namespace orvante::transport

