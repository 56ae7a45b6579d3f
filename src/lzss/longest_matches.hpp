#pragma once
// The longest match at every input position, for the compressor's parse.
// A match copies only bytes the input itself put in the ring: its source
// starts 1 to 4095 bytes back, never in the ring's initial fill (a printer
// may hold other bytes there than spaces).

#include <cstdint>
#include <memory>

#include <orvante/bytes.hpp>

namespace orvante::lzss {

class LongestMatches {
 public:
  explicit LongestMatches(ByteView input);
  ~LongestMatches();

  // For each position from `from` to `to`, in order across calls: the
  // longest match's length, 0 below 3 bytes (every length from 3 up to it
  // comes from the same source), and its distance back.
  void find(std::size_t from, std::size_t to, std::uint8_t* lengths, std::uint16_t* distances);

 private:
  struct Index;
  ByteView input_;
  // The thread's index while no finder holds it: its tables' memory
  // serves input after input.
  static std::unique_ptr<Index>& spare();
  std::unique_ptr<Index> index_;
  // A stretch: from the position before `stretchEnd_ - 17` back, every
  // position has 18 bytes at `stretchDistance_`.
  std::size_t stretchEnd_ = 0;
  std::uint32_t stretchDistance_ = 0;
  std::size_t misses_ = 0;  // positions since the last match
  bool noisy_ = false;      // the last call found no match at many positions
  // The match of the position before, which goes on here one byte shorter.
  int lastLength_ = 0;
  std::uint32_t lastDistance_ = 0;
};

}  // namespace orvante::lzss
