#include "lzss_extent.hpp"

namespace orvante::vprinter {

namespace {
// A match unit holds its length minus this in its low nibble.
constexpr std::size_t kShortestMatch = 3;
}  // namespace

std::size_t LzssExtent::take(ByteView bytes) {
  std::size_t used = 0;
  while (used < bytes.size() && !ended()) {
    const std::uint8_t byte = bytes[used++];
    if (inMatch_) {
      produced_ += (byte & 0x0F) + kShortestMatch;
      inMatch_ = false;
    } else if (unitsLeft_ == 0) {
      flags_ = byte;
      unitsLeft_ = 8;
    } else {
      const bool literal = flags_ & 1;
      flags_ >>= 1;
      --unitsLeft_;
      if (literal) {
        ++produced_;
      } else {
        inMatch_ = true;
      }
    }
  }
  return used;
}

}  // namespace orvante::vprinter
