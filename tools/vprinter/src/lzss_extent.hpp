#pragma once
// Finds where an LZSS stream ends without decoding it. The bitmap packet
// carries no length of its compressed data: the stream ends with the unit
// that completes bytes-per-row x height bytes of output. Counting what each
// unit produces tells that point from the stream alone, in any split, with
// no buffer.

#include <cstddef>
#include <cstdint>

#include <orvante/bytes.hpp>

namespace orvante::vprinter {

class LzssExtent {
 public:
  explicit LzssExtent(std::size_t expected) : expected_(expected) {}

  // Consumes stream bytes until the stream ends; returns how many it took.
  std::size_t take(ByteView bytes);
  // The stream is complete, or a match ran past the expected size.
  bool ended() const { return produced_ >= expected_ && !inMatch_; }
  bool overran() const { return produced_ > expected_; }
  std::size_t produced() const { return produced_; }

 private:
  std::size_t expected_;
  std::size_t produced_ = 0;
  std::uint8_t flags_ = 0;
  int unitsLeft_ = 0;  // units still announced by the current flags byte
  bool inMatch_ = false;
};

}  // namespace orvante::vprinter
