#pragma once
// A private D-Bus daemon for tests: its own socket in a fresh directory, a
// policy that lets its clients own any name, stopped with the object.

#include <string>
#include <sys/types.h>

namespace orvante::testing {

class PrivateBus {
 public:
  // Starts the daemon and waits until it listens; throws when it cannot.
  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  const std::string& address() const { return address_; }

 private:
  std::string directory_;
  std::string address_;
  pid_t pid_ = -1;
};

}  // namespace orvante::testing
