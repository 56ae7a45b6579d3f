#pragma once
// The parse of a stretch of input with the fewest bits, from its end
// backwards: a literal costs 9 bits with its flag, a match 17 whatever its
// length, and a match may take any length from 3 to the longest found at
// its position. At a position with a match the cheapest end in reach is
// the least of up to sixteen costs ahead, taken side by side in two vector
// registers: with no branch on the costs, which in dithered rows are too
// irregular for prediction. The costs ahead stay in those registers from
// position to position, as reading back those just written would wait for
// the stores.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ring.hpp"

namespace orvante::lzss {

// A stretch's costs in bits, less 32768: 16 bits hold a block of 4096
// literals, and signed compares give the order of the bits.
using Cost = std::int16_t;
inline constexpr Cost kNoEnd = 0x7FFF;  // dearer than any end
// Room the costs need beyond a stretch of `size`: the ends a match of 18
// may be compared with.
inline constexpr std::size_t kCostPadding = kLongest + 1;
inline constexpr int kLiteralBits = 9, kMatchBits = 17;  // with their flag

namespace parse {

#if defined(__SSE2__)
// For each reach from 0 to 18: which of the sixteen ends from 3 to 18 on
// are in it (all bits set), and what those out of it read as.
struct EndsInReach {
  alignas(16) Cost in[kLongest + 1][16];
  alignas(16) Cost out[kLongest + 1][16];
  constexpr EndsInReach() : in{}, out{} {
    for (int reach = 0; reach <= kLongest; ++reach) {
      for (int k = 0; k < 16; ++k) {
        const bool within = k + kCodedFrom <= reach;
        in[reach][k] = within ? Cost{-1} : Cost{0};
        out[reach][k] = within ? Cost{0} : kNoEnd;
      }
    }
  }
};
inline constexpr EndsInReach kEndsInReach{};

// The costs of the ends 1 to 18 on from a position, in registers as the
// parse walks back: `near` and `far` hold the ends 3 to 18.
struct Ahead {
  Ahead(const Cost* cost, std::size_t at)
      : near(_mm_loadu_si128(reinterpret_cast<const __m128i*>(cost + at + kCodedFrom))),
        far(_mm_loadu_si128(reinterpret_cast<const __m128i*>(cost + at + kCodedFrom + 8))),
        first(cost[at + 1]), second(cost[at + 2]) {}
  // One position back, whose next end costs `now`.
  void back(int now) {
    far = _mm_or_si128(_mm_slli_si128(far, 2), _mm_srli_si128(near, 14));
    near = _mm_insert_epi16(_mm_slli_si128(near, 2), second, 0);
    second = first;
    first = now;
  }
  __m128i near, far;
  int first, second;
};

// The cheapest of the ends 3 to `reach` (3 or more) in `ahead`, and its
// length; of equally cheap ends the farthest.
inline std::pair<int, int> cheapestEnd(const Ahead& ahead, std::size_t reach) {
  const auto* in = reinterpret_cast<const __m128i*>(kEndsInReach.in[reach]);
  const auto* out = reinterpret_cast<const __m128i*>(kEndsInReach.out[reach]);
  const __m128i near = _mm_or_si128(_mm_and_si128(ahead.near, in[0]), out[0]);
  const __m128i far = _mm_or_si128(_mm_and_si128(ahead.far, in[1]), out[1]);
  __m128i least = _mm_min_epi16(near, far);
  least = _mm_min_epi16(least, _mm_srli_si128(least, 8));
  least = _mm_min_epi16(least, _mm_srli_si128(least, 4));
  least = _mm_min_epi16(least, _mm_srli_si128(least, 2));
  const int cheapest = static_cast<Cost>(_mm_cvtsi128_si32(least));
  const __m128i everywhere = _mm_shuffle_epi32(_mm_shufflelo_epi16(least, 0), 0);
  // Bit k: the end k + 3 on costs the least.
  const auto ends = static_cast<unsigned>(_mm_movemask_epi8(
      _mm_packs_epi16(_mm_cmpeq_epi16(near, everywhere), _mm_cmpeq_epi16(far, everywhere))));
  return {cheapest, 31 - __builtin_clz(ends) + kCodedFrom};
}
#else
struct Ahead {
  Ahead(const Cost* cost, std::size_t at) : ends(cost + at), first(cost[at + 1]) {}
  void back(int now) { --ends; first = now; }
  const Cost* ends;
  int first;
};
inline std::pair<int, int> cheapestEnd(const Ahead& ahead, std::size_t reach) {
  int cheapest = kNoEnd, length = 0;
  for (int end = kCodedFrom; end <= static_cast<int>(reach); ++end) {
    if (ahead.ends[end] <= cheapest) {
      cheapest = ahead.ends[end];
      length = end;
    }
  }
  return {cheapest, length};
}
#endif

// The positions down from `first` without a match, each a literal: their
// costs climb by `kLiteralBits` from `last`, the cost at `first`. Returns
// the lowest of them. Dithered rows are runs of literals between short
// matches: a run goes at once, with no branch for each of its positions.
// 16 positions below it may be written.
inline std::size_t literalsDown(const std::uint8_t* longest, std::uint8_t* taken, Cost* cost,
                                std::size_t first, int last) {
#if defined(__SSE2__)
  const __m128i climb = _mm_setr_epi16(8 * kLiteralBits, 7 * kLiteralBits, 6 * kLiteralBits,
                                       5 * kLiteralBits, 4 * kLiteralBits, 3 * kLiteralBits,
                                       2 * kLiteralBits, 1 * kLiteralBits);
  while (first >= 16) {
    const __m128i lengths = _mm_loadu_si128(reinterpret_cast<const __m128i*>(longest + first - 16));
    // Bit k: position first - 16 + k has no match.
    const auto none = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_cmplt_epi8(lengths, _mm_set1_epi8(kCodedFrom))));
    const int count = __builtin_clz(~(none << 16));
    const __m128i from = _mm_set1_epi16(static_cast<short>(last));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(cost + first - 8), _mm_add_epi16(from, climb));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(cost + first - 16),
                     _mm_add_epi16(from, _mm_add_epi16(climb, _mm_set1_epi16(8 * kLiteralBits))));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(taken + first - 16), _mm_set1_epi8(1));
    first -= static_cast<std::size_t>(count);
    last += count * kLiteralBits;
    if (count < 16) return first;
  }
#endif
  while (first > 0 && longest[first - 1] < kCodedFrom) {
    --first;
    last += kLiteralBits;
    cost[first] = static_cast<Cost>(last);
    taken[first] = 1;
  }
  return first;
}

}  // namespace parse

// Writes for each position the length the cheapest parse takes there (1: a
// literal). Of equally cheap choices the longest is taken, so a short
// remainder comes last. `cost` has room for size + kCostPadding.
inline void chooseCheapest(std::size_t size, const std::uint8_t* longest, std::uint8_t* taken,
                           Cost* cost) {
  if (size == 0) return;
  cost[size] = -32768;
  std::fill(cost + size + 1, cost + size + kCostPadding, kNoEnd);
  // How many positions from here on have 18-byte matches. With 22 or more,
  // a match of 18 is the cheapest choice here: whatever a parse does over
  // the next 21 positions, a match of 18 and then one or two more reach the
  // same place for no more bits.
  std::size_t full = 0;
  parse::Ahead ahead(cost, size - 1);
  for (std::size_t i = size; i-- > 0;) {
    full = longest[i] == kLongest ? full + 1 : 0;
    if (full > kLongest + 3) {
      // The rest of the run down to its first position at once. Only its
      // first 18 positions' costs can be asked for, by positions before it:
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
        cost[at] = static_cast<Cost>(cost[at + steps * kLongest] + static_cast<int>(steps) * kMatchBits);
      }
      i = first;
      if (i > 0) ahead = parse::Ahead(cost, i - 1);
      continue;
    }
    const int literal = ahead.first + kLiteralBits;
    const std::size_t reach = std::min<std::size_t>(longest[i], size - i);
    if (reach < kCodedFrom) [[likely]] {
      cost[i] = static_cast<Cost>(literal);
      taken[i] = 1;
      i = parse::literalsDown(longest, taken, cost, i, literal);
      if (i > 0) ahead = parse::Ahead(cost, i - 1);
      full = 0;
      continue;
    }
    const auto [cheapest, length] = parse::cheapestEnd(ahead, reach);
    const int match = cheapest + kMatchBits;
    const bool matches = match <= literal;
    const int now = matches ? match : literal;
    cost[i] = static_cast<Cost>(now);
    taken[i] = static_cast<std::uint8_t>(matches ? length : 1);
    ahead.back(now);
  }
}

}  // namespace orvante::lzss
