#pragma once
// The stand-in BlueZ's own thread, which owns its D-Bus connection: it
// dispatches the bus's messages and runs the tasks posted to it, so every
// use of the connection happens on that thread. sd-bus connections are not safe to use from two
// threads at once, and a call made beside a running loop can swallow
// messages meant for the loop.

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include <sdbus-c++/sdbus-c++.h>

namespace orvante::testing::bluez {

class BusLoop {
 public:
  explicit BusLoop(std::unique_ptr<sdbus::IConnection> bus);
  ~BusLoop();
  BusLoop(const BusLoop&) = delete;
  BusLoop& operator=(const BusLoop&) = delete;

  // Only on the loop's thread (in a task or a handler).
  sdbus::IConnection& bus() { return *bus_; }
  void post(std::function<void()> task);
  bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }
  // Ends the thread; tasks not yet run are dropped. Not from the loop itself.
  void stop();
  // Runs the tasks posted so far (a second at most), so the calls they make
  // are on their way, then stops. Not from the loop itself.
  void finish();

 private:
  void run();

  std::unique_ptr<sdbus::IConnection> bus_;
  int wakeFd_;
  std::mutex mutex_;
  std::deque<std::function<void()>> tasks_;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace orvante::testing::bluez
