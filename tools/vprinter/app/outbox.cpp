#include "outbox.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace orvante::vprinter {

bool Outbox::send(int fd) {
  while (sent_ < bytes_.size()) {
    const std::uint8_t* data = bytes_.data() + sent_;
    const std::size_t size = bytes_.size() - sent_;
    const ssize_t written =
        socket_ ? ::send(fd, data, size, MSG_NOSIGNAL) : ::write(fd, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    if (written <= 0) return false;
    sent_ += static_cast<std::size_t>(written);
  }
  // The sent front goes once it is half the buffer: each byte moves at
  // most once on average.
  if (sent_ == bytes_.size()) {
    clear();
  } else if (sent_ >= bytes_.size() / 2) {
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(sent_));
    sent_ = 0;
  }
  return true;
}

void Outbox::clear() {
  // A large buffer, left by a burst of replies, is given back.
  if (bytes_.capacity() > 64 * 1024) {
    bytes_ = Bytes();
  } else {
    bytes_.clear();
  }
  sent_ = 0;
}

}  // namespace orvante::vprinter
