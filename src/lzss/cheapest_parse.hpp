#pragma once
// The parse of a stretch of input with the fewest bits, from its end
// backwards: a literal costs 9 bits with its flag, a match 17 whatever its
// length, and a match may take any length from 3 to the longest found at
// its position. The longest match one position on is at most one byte
// shorter (the same source, one further), so the farthest end in reach
// never moves forward as the parse walks back: the cheapest end in reach
// comes from a queue, not from a scan of all sixteen lengths.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ring.hpp"

namespace orvante::lzss {

// Writes for each position the length the cheapest parse takes there (1: a
// literal). Of equally cheap choices the longest is taken, so a short
// remainder comes last. `bits` has room for size + 1.
inline void chooseCheapest(std::size_t size, const std::uint8_t* longest, std::uint8_t* taken,
                           std::uint32_t* bits) {
  constexpr std::uint32_t kLiteralBits = 9, kMatchBits = 17;
  // Ends of matches, ascending from `first` to `last`, their bits strictly
  // descending: the last one in reach is the cheapest.
  std::uint32_t queue[32];
  unsigned first = 0, last = 0;
  auto enqueue = [&](std::uint32_t end) {
    while (first != last && bits[queue[first & 31]] > bits[end]) ++first;
    queue[--first & 31] = end;
  };
  // How many positions from here on have 18-byte matches. Deep in such a
  // run, 36 or more bytes before its end, taking 18 at a time is the
  // cheapest. There, and where no match is, the queue is left alone; the
  // next position with a match fills it again with the ends it can reach.
  std::size_t full = 0;
  bool stale = false;
  bits[size] = 0;
  for (std::size_t i = size; i-- > 0;) {
    full = longest[i] == kLongest ? full + 1 : 0;
    if (full > 2 * kLongest) {
      // The rest of the run down to its first position at once. Only its
      // first 18 positions' bits can be asked for, by positions before it:
      // each is that of a position 18 k on, past the rest, and 17 k more.
      std::size_t first = i;
      constexpr std::uint64_t kAllLongest = 0x0101010101010101u * kLongest;
      for (std::uint64_t word; first >= 8; first -= 8) {
        std::memcpy(&word, longest + first - 8, sizeof word);
        if (word != kAllLongest) break;
      }
      while (first > 0 && longest[first - 1] == kLongest) --first;
      std::fill(taken + first, taken + i + 1, std::uint8_t{kLongest});
      for (std::size_t at = first; at <= i && at < first + kLongest; ++at) {
        const std::size_t steps = (i - at) / kLongest + 1;
        bits[at] = bits[at + steps * kLongest] + static_cast<std::uint32_t>(steps) * kMatchBits;
      }
      stale = true;
      i = first;
      continue;
    }
    const std::size_t reach = i + std::min<std::size_t>(longest[i], size - i);
    if (reach < i + kCodedFrom) {
      bits[i] = bits[i + 1] + kLiteralBits;
      taken[i] = 1;
      stale = true;
      continue;
    }
    if (stale) {
      first = last = 0;
      for (std::size_t end = reach; end > i + kCodedFrom; --end) {
        enqueue(static_cast<std::uint32_t>(end));
      }
      stale = false;
    }
    enqueue(static_cast<std::uint32_t>(i + kCodedFrom));
    while (first != last && queue[(last - 1) & 31] > reach) --last;
    // The queue holds i + 3 at least.
    const std::uint32_t end = queue[(last - 1) & 31];
    const std::uint32_t literal = bits[i + 1] + kLiteralBits, match = bits[end] + kMatchBits;
    bits[i] = std::min(literal, match);
    taken[i] = static_cast<std::uint8_t>(match <= literal ? end - i : 1);
  }
}

}  // namespace orvante::lzss
