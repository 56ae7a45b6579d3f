#pragma once
// Replies waiting for a non-blocking descriptor, a client's socket or the
// pseudo-terminal, to take them. They are sent as it takes them and never
// waited for, so one peer that does not read holds up no other.

#include <cstddef>

#include <orvante/bytes.hpp>

namespace orvante::vprinter {

class Outbox {
 public:
  explicit Outbox(bool socket) : socket_(socket) {}

  void add(const Bytes& bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  // Sends what the descriptor takes now; false when it is gone.
  bool send(int fd);
  void clear();
  // Bytes not sent yet.
  std::size_t size() const { return bytes_.size() - sent_; }

 private:
  bool socket_;  // send() without SIGPIPE, rather than write()
  Bytes bytes_;
  std::size_t sent_ = 0;  // the front of bytes_ already sent
};

}  // namespace orvante::vprinter
