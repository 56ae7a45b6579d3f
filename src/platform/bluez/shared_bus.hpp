#pragma once
// The process's one connection to the system bus, shared by the BLE
// centrals and the serial-profile printers: made on the first Bluetooth use,
// closed when the last holder lets go. The library's event loop dispatches
// it, so it costs no thread of its own: every use of the connection happens
// on the loop's thread (sd-bus connections are not safe to use from two
// threads, and a call made beside the dispatch can swallow its messages).

#include <chrono>
#include <functional>
#include <memory>

#include <sdbus-c++/sdbus-c++.h>

namespace orvante::platform::bluez {

class SharedBus : public std::enable_shared_from_this<SharedBus> {
 public:
  // The connection to the bus at DBUS_SYSTEM_BUS_ADDRESS (the system bus's
  // own address when unset); null when there is no bus to connect to.
  static std::shared_ptr<SharedBus> acquire();

  SharedBus(std::unique_ptr<sdbus::IConnection> connection, std::string address);
  ~SharedBus();
  SharedBus(const SharedBus&) = delete;
  SharedBus& operator=(const SharedBus&) = delete;

  // Runs the task on the event loop's thread; a call that cannot even be
  // sent is dropped there.
  void post(std::function<void()> task);
  // The same, waiting until it has run (at once when called on the loop's
  // thread); false when it did not run within the limit.
  bool run(std::function<void()> task, std::chrono::milliseconds limit = std::chrono::seconds(5));
  // Only on the loop's thread: in a task or a handler.
  sdbus::IConnection& connection() { return *connection_; }
  bool isCurrent() const;

 private:
  void start();
  // On the loop: the messages waiting are dispatched, then the watch and
  // the timer follow what sd-bus waits for next.
  void service();

  struct Loop;
  std::unique_ptr<sdbus::IConnection> connection_;
  const std::string address_;
  std::unique_ptr<Loop> loop_;
};

}  // namespace orvante::platform::bluez
