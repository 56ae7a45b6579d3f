// For each hash of a position's first three bytes, the four newest
// positions that had it, 16 bits each in one word: a lookup is one load and
// the newest three are compared side by side, with no chain to follow. Beside
// them, for each hash of all 18 bytes, the newest position that had them:
// in periodic rows the newest few with the same three bytes are all the
// near repeats, and only the whole 18 bytes lead back to the row that goes
// on matching. And where all three share the three bytes and none goes far,
// as in rows of few distinct bytes, the position is also kept and looked up
// by five bytes. Every comparison checks the bytes and every distance is
// checked against the window, so an entry left over from long ago costs
// only a worse candidate, never a wrong match. Away from the input's last
// 32 bytes the comparisons take 16 bytes at a time and pick the longest
// without branching on the bytes, which are too irregular for prediction
// in dithered rasters.
//
// Label rasters are mostly runs of one byte and rows that repeat the row
// above. Two cheap tries come before the slots: distance 1 and the distance
// that served the position before. When one gives 18 bytes, the repeat is
// followed to its end at once: every position up to 18 before that end has
// 18 bytes at the same distance, with no lookup, and only one in 32 of them
// goes into the slots.

#include "longest_matches.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ring.hpp"

namespace orvante::lzss {
namespace {

// Positions compared for each hash. Three find nearly every match four
// do on rasters, in less time; two miss a few long ones on label rows.
constexpr int kWays = 3;
constexpr std::size_t kStretchEvery = 32;  // stretch positions put in the slots
constexpr int kKnownEnough = 12;  // a match this long spares the slot's compares
// Where all of a slot's positions share the three bytes and give less than
// this, the position is looked up by five bytes as well.
constexpr int kCrowdedBelow = 6;
// A call where more than one position in this many found no match, as in
// dithered areas, counts as noisy: the next call leaves the five-byte slots
// alone, as there they cost a fifth of the search and seldom find more.
constexpr std::size_t kNoisyOneIn = 4;
// After this many positions without a match the input counts as
// incompressible: the search thins out to one position in up to kSparsest
// until it meets a match again, so random bytes cost little time (and lose
// the few chance matches of three bytes they hold). Photos dithered with
// little error diffusion go hundreds of positions without a match and
// still hold some after.
constexpr std::size_t kPatience = 1024;
constexpr std::size_t kSparsest = 16;
constexpr std::uint32_t kCyclic = 4096;  // the window, and one more
// Positions are kept as 32-bit numbers, which wrap on inputs of 4 GiB and
// more; a source is used only when its distance back is 1 to 4095. An
// empty entry holds a position 2 GiB away, out of reach for the first
// 2 GiB of input (past that, at worst a real position whose bytes are
// compared).
constexpr std::uint32_t kEmpty = 0x80000000u;

std::uint64_t load64(const std::uint8_t* at) {
  std::uint64_t word;
  std::memcpy(&word, at, sizeof word);
  return word;
}

// How many of the bytes at `from` and `at` agree, counting on from `start`
// up to `limit` (at most 18). `wide`: 32 bytes may be read from `at` on.
[[gnu::always_inline]] inline int agreeing(const std::uint8_t* from, const std::uint8_t* at,
                                           int start, int limit, bool wide) {
  if constexpr (std::endian::native == std::endian::little) {
    if (wide) {
      for (int k = start; k < limit; k += 8) {
        const std::uint64_t differ = load64(from + k) ^ load64(at + k);
        if (differ) return std::min(limit, k + std::countr_zero(differ) / 8);
      }
      return limit;
    }
  }
  int k = start;
  while (k < limit && from[k] == at[k]) ++k;
  return k;
}

// The 18 bytes at a position, loaded once for comparing with several
// candidates. 32 bytes may be read from `at` on.
struct Eighteen {
#if defined(__SSE2__)
  // Bytes 0 to 15 and 2 to 17: two overlapping compares cover all 18.
  explicit Eighteen(const std::uint8_t* at)
      : head(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at))),
        shifted(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at + 2))) {}
  __m128i head, shifted;
#else
  explicit Eighteen(const std::uint8_t* at) : at(at) {}
  const std::uint8_t* at;
#endif

  // How many of them the bytes at `from` agree with, without a branch.
  [[gnu::always_inline]] int agree(const std::uint8_t* from) const {
#if defined(__SSE2__)
    const auto low = static_cast<unsigned>(_mm_movemask_epi8(
        _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)), head)));
    const auto high = static_cast<unsigned>(_mm_movemask_epi8(
        _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 2)), shifted)));
    // Bit k: byte k agrees.
    const unsigned equal = low | high << 2;
    return __builtin_ctz(~equal | 1u << kLongest);
#else
    return agreeing(from, at, 0, kLongest, false);
#endif
  }
};

// How many bytes from `at` on, up to `limit`, equal the first. `wide`: 32
// bytes may be read.
[[gnu::always_inline]] inline int runAt(const std::uint8_t* at, int limit, bool wide) {
  if constexpr (std::endian::native == std::endian::little) {
    if (wide) {
      const std::uint64_t spread = at[0] * 0x0101010101010101u;
      for (int k = 0; k < limit; k += 8) {
        const std::uint64_t differ = load64(at + k) ^ spread;
        if (differ) return std::min(limit, k + std::countr_zero(differ) / 8);
      }
      return limit;
    }
  }
  int k = 1;
  while (k < limit && at[k] == at[0]) ++k;
  return k;
}

// `count` copies of `value` from `at` on, four at a time.
void fill16(std::uint16_t* at, std::size_t count, std::uint16_t value) {
  const std::uint64_t four = value * 0x0001000100010001u;
  std::size_t k = 0;
  for (; k + 4 <= count; k += 4) std::memcpy(at + k, &four, sizeof four);
  for (; k < count; ++k) at[k] = value;
}

// Where the repeat at `distance` that holds at `position` ends: the first
// byte from there on that differs from the one `distance` back.
std::size_t repeatEnd(const std::uint8_t* in, std::size_t size, std::size_t position,
                      std::size_t distance) {
  std::size_t at = position;
  if constexpr (std::endian::native == std::endian::little) {
    for (; at + 8 <= size; at += 8) {
      const std::uint64_t differ = load64(in + at) ^ load64(in + at - distance);
      if (differ) return at + static_cast<std::size_t>(std::countr_zero(differ) / 8);
    }
  }
  while (at < size && in[at] == in[at - distance]) ++at;
  return at;
}

}  // namespace

struct LongestMatches::Index {
  // Empties the tables, sized for an input of `inputSize` bytes: sixteen
  // slots for each position the window can hold, as a fuller table hides
  // short matches behind other keys in dithered rows. Their memory
  // stays from input to input: fresh pages for each would cost more than
  // the search on a label.
  void reset(std::size_t inputSize) {
    const std::size_t held = std::min<std::size_t>(inputSize, kCyclic);
    bits = std::clamp(static_cast<int>(std::bit_width(held)) + 4, 8, 16);
    wholeBits = std::min(bits, 13);
    slots.assign(std::size_t{1} << bits, 0);
    whole.assign(std::size_t{1} << wholeBits, kEmpty);
    crowded.assign(std::size_t{1} << wholeBits, 0);
    std::fill(&runs[0][0], &runs[0][0] + sizeof runs / sizeof runs[0][0], kEmpty);
  }

  // The slot of a position that starts with `run` equal bytes: by its first
  // three bytes, or for a run of 2 or more by the byte, the run's length and
  // the byte that ends it. A match longer than the run can only come from a
  // position with the same run and end, so runs of one byte, common in
  // rasters, do not crowd one slot.
  std::uint32_t key(const std::uint8_t* at, int run, int limit) const {
    const std::uint32_t three =
        run == 1 ? at[0] | at[1] << 8 | at[2] << 16
                 : 0x80000000u | at[0] | static_cast<std::uint32_t>(run) << 8 |
                       (run < limit ? at[run] : 0u) << 16;
    return (three * 2654435761u) >> (32 - bits);
  }

  // Puts `position` first in its slot of `table` and returns the slot's
  // positions before it, the newest in the low 16 bits.
  static std::uint64_t link(std::vector<std::uint64_t>& table, std::uint32_t slot,
                            std::uint32_t position) {
    const std::uint64_t newest = table[slot];
    table[slot] = newest << 16 | (position & 0xFFFFu);
    return newest;
  }
  std::uint64_t link(std::uint32_t slot, std::uint32_t position) {
    return link(slots, slot, position);
  }

  // The slot in `crowded` of the five bytes at `at`, of which 32 may be
  // read.
  std::uint32_t crowdedKey(const std::uint8_t* at) const {
    return static_cast<std::uint32_t>((load64(at) << 24) * 0x9E3779B97F4A7C15u >> (64 - wholeBits));
  }

  // The slot in `whole` of the 18 bytes at `at`, of which 32 may be read.
  std::uint32_t wholeKey(const std::uint8_t* at) const {
    std::uint16_t last;
    std::memcpy(&last, at + 16, sizeof last);
    const std::uint64_t mixed = load64(at) * 0x9E3779B97F4A7C15u ^
                                load64(at + 8) * 0xC2B2AE3D27D4EB4Fu ^ last * 0x165667B19E3779F9u;
    return static_cast<std::uint32_t>(mixed >> (64 - wholeBits));
  }

  // How far back a slot's 16-bit position lies from `position`: exact
  // within 64 KiB, and at most `position` whatever the slot held.
  static std::uint32_t backFrom(std::uint32_t position, std::uint64_t newest, int k) {
    return (position - static_cast<std::uint32_t>(newest >> (16 * k))) & 0xFFFFu;
  }

  // Inserts `position` (whose `limit` bytes may be read, 32 when `wide`,
  // and whose first `run` bytes are equal) and returns the longest match
  // among the newest positions of its slot, of length 0 if none.
  std::pair<int, std::uint32_t> insert(const std::uint8_t* at, std::uint32_t position,
                                       int run, int limit, bool wide) {
    int best = 0;
    std::uint32_t distance = 0;
    const std::uint64_t newest = link(key(at, run, limit), position);
    for (int k = 0; k < kWays && best < limit; ++k) {
      const std::uint32_t back = backFrom(position, newest, k);
      if (back - 1 >= kCyclic - 1) continue;
      const int agree = agreeing(at - back, at, 0, limit, wide);
      distance = agree > best ? back : distance;
      best = std::max(best, agree);
    }
    return {best, distance};
  }

  // As `insert` for a position with at least 32 bytes from it on, its
  // `slot`, and a match of `known` bytes found already: first the newest
  // position with the same 18 bytes, then the slot's positions, all
  // compared whatever they give, without a branch on the bytes; then, if
  // `crowding`, the five-byte slots.
  std::pair<int, std::uint32_t> insertWide(const std::uint8_t* at, const Eighteen& here,
                                           std::uint32_t position, std::uint32_t slot, int known,
                                           bool crowding) {
    // The best so far in one word, its length above kRing - 1 less its
    // distance: the longest, and of those the nearest, is the greatest.
    constexpr int kLengthShift = 12;
    constexpr std::uint32_t kFar = kRing - 1;
    std::uint32_t best = 0;
    auto length = [&] { return static_cast<int>(best >> kLengthShift); };
    auto found = [&] { return std::pair<int, std::uint32_t>{length(), kFar - (best & kFar)}; };
    // Compares the position `back` bytes back, if in reach, and keeps it if
    // it goes further; returns how far it went (0 out of reach).
    auto offer = [&](std::uint32_t back) {
      const std::uint32_t reach = 0u - static_cast<std::uint32_t>(back - 1 < kCyclic - 1);
      const std::uint32_t agreed = static_cast<std::uint32_t>(here.agree(at - (back & reach))) & reach;
      best = std::max(best, agreed << kLengthShift | (kFar - (back & kFar)));
      return agreed;
    };
    const std::uint64_t newest = link(slot, position);
    // Where not even three bytes repeat at the distance before, or in a
    // noisy call, as in dithered areas, a whole 18 is rare: it is neither
    // looked for nor kept.
    if (known >= kCodedFrom && crowding) {
      std::uint32_t& same = whole[wholeKey(at)];
      offer(position - same);
      same = position;
    }
    // With 12 bytes or more known at the distance before (most often near
    // the end of a stretch), only a whole 18 is worth the lookup.
    if (known >= kKnownEnough) [[unlikely]] return found();
    // With the slots far more than the keys in the window, a newest
    // position that does not share the three bytes means the slot holds
    // another key: most positions of a dithered raster stop at that, and
    // only three of its bytes are compared.
    std::uint32_t shared = 0;  // the least any gave
    const std::uint32_t newestBack = backFrom(position, newest, 0);
    constexpr std::uint32_t kFirstThree =
        std::endian::native == std::endian::little ? 0x00FFFFFFu : 0xFFFFFF00u;
    std::uint32_t here4, there4;
    std::memcpy(&here4, at, sizeof here4);
    std::memcpy(&there4, at - newestBack, sizeof there4);
    if (newestBack - 1 < kCyclic - 1 && ((here4 ^ there4) & kFirstThree) == 0) {
      shared = kLongest;
#pragma GCC unroll 3
      for (int k = 0; k < kWays; ++k) shared = std::min(shared, offer(backFrom(position, newest, k)));
    }
    // Crowded: all shared the three bytes and none went far, as in rows of
    // few distinct bytes, where the newest few of dozens are seldom the
    // best. Such positions have slots of their own, by five bytes. While
    // the window fills, every position goes in them: the first rows'
    // slots are not crowded yet, but later rows look for their bytes there.
    if (crowding && ((shared >= kCodedFrom && length() < kCrowdedBelow) || position < kCyclic)) {
      const std::uint64_t sharing = link(crowded, crowdedKey(at), position);
#pragma GCC unroll 3
      for (int k = 0; k < kWays; ++k) offer(backFrom(position, sharing, k));
    }
    return found();
  }

  // Puts one in kStretchEvery of the stretch positions from `from` to `to`
  // in the slots, so that their bytes stay within reach once their sources
  // have left the window; the others are reached one to a few bytes off.
  void linkStretch(const std::uint8_t* in, std::size_t size, std::size_t from, std::size_t to) {
    for (std::size_t k = (from + kStretchEvery - 1) / kStretchEvery * kStretchEvery; k < to;
         k += kStretchEvery) {
      const auto position = static_cast<std::uint32_t>(k);
      const bool wide = size - k >= 32;
      link(key(in + k, runAt(in + k, kLongest, wide), kLongest), position);
      if (wide) whole[wholeKey(in + k)] = position;
    }
  }

  // A run of 3 or more bytes from its start on matches another run of the
  // same byte for as long as the shorter of the two: for each byte value
  // and run length (18 for 18 or more), where such a run last started.
  void runStarts(std::uint8_t byte, int run, std::uint32_t position) {
    runs[byte][run - kCodedFrom] = position;
  }
  // The source for a run of `run` bytes at `position` that gives the
  // longest match among the runs known, or `position` itself if none.
  std::uint32_t runSource(std::uint8_t byte, int run, std::uint32_t position) const {
    const std::uint32_t* starts = runs[byte];
    // A run at least as long: its last `run` bytes, which may go on to
    // match what follows.
    for (int length = run; length <= kLongest; ++length) {
      const std::uint32_t source = starts[length - kCodedFrom] + (length - run);
      if (position - source - 1 < kCyclic - 1) return source;
    }
    for (int length = run - 1; length >= kCodedFrom; --length) {
      const std::uint32_t source = starts[length - kCodedFrom];
      if (position - source - 1 < kCyclic - 1) return source;
    }
    return position;
  }

  int bits = 0, wholeBits = 0;
  // For each hash, the newest four positions that went in with it, 16
  // bits each.
  std::vector<std::uint64_t> slots;
  // For each hash of 18 bytes, the newest position that had them.
  std::vector<std::uint32_t> whole;
  // For each hash of five bytes, the newest four crowded positions that
  // had them.
  std::vector<std::uint64_t> crowded;
  std::uint32_t runs[256][kLongest - kCodedFrom + 1];
};

std::unique_ptr<LongestMatches::Index>& LongestMatches::spare() {
  thread_local std::unique_ptr<Index> index;
  return index;
}

LongestMatches::LongestMatches(ByteView input)
    : input_(input), index_(spare() ? std::move(spare()) : std::make_unique<Index>()) {
  index_->reset(input.size());
}

LongestMatches::~LongestMatches() { spare() = std::move(index_); }

void LongestMatches::find(std::size_t from, std::size_t to, std::uint8_t* lengths,
                          std::uint16_t* distances) {
  // Kept in locals: the byte stores below may alias any member.
  const std::uint8_t* in = input_.data();
  const std::size_t size = input_.size();
  Index& index = *index_;
  std::size_t stretchEnd = stretchEnd_;
  std::uint32_t stretchDistance = stretchDistance_;
  int lastLength = lastLength_;
  std::uint32_t lastDistance = lastDistance_;

  std::size_t misses = misses_;
  std::size_t unmatched = 0;  // positions of this call without a match
  const bool crowding = !noisy_;
  std::size_t i = from;
  // The slots of the next two positions by their first three bytes, and
  // the positions they are for.
  std::uint32_t keyed[2] = {};
  std::size_t keyedFor[2] = {~std::size_t{0}, ~std::size_t{0}};
  while (i < to) {
    if (misses > kPatience) [[unlikely]] {
      // Incompressible so far: positions are searched ever more sparsely,
      // the others go into no slot, until a match is met again.
      const std::size_t step = std::min(kSparsest, (misses - kPatience) / 32 + 1);
      const std::size_t stop = std::min(to, i + step - 1);
      std::memset(lengths + (i - from), 0, stop - i);
      misses += stop - i;
      unmatched += stop - i;
      lastLength = 0;
      i = stop;
      if (i == to) break;
    }
    if (i + kLongest <= stretchEnd) [[unlikely]] {
      const std::size_t stop = std::min(to, stretchEnd - kLongest + 1);
      index.linkStretch(in, size, i, stop);
      if (stretchDistance == 1) index.runStarts(in[i], kLongest, static_cast<std::uint32_t>(stop - 1));
      std::memset(lengths + (i - from), kLongest, stop - i);
      fill16(distances + (i - from), stop - i, static_cast<std::uint16_t>(stretchDistance));
      lastLength = kLongest;
      lastDistance = stretchDistance;
      misses = 0;
      i = stop;
      continue;
    }
    const auto position = static_cast<std::uint32_t>(i);
    int best = 0;
    std::uint32_t distance = 0;
    if (i > 0 && size - i >= 32) [[likely]] {
      const std::uint8_t* at = in + i;
      const Eighteen here(at);
      const int run = runAt(at, kLongest, true);
      best = in[i - 1] == at[0] ? run : 0;  // the run, from the byte before
      distance = 1;
      if (best == 0 && run >= kCodedFrom) [[unlikely]] {
        const std::uint32_t source = index.runSource(at[0], run, position);
        if (source != position) {
          best = here.agree(in + source);
          distance = position - source;
        }
        index.runStarts(at[0], run, position);
      }
      // The match of the position before goes on here one byte shorter;
      // its bytes are compared again only where it was cut at 18.
      const int again =
          lastLength < kLongest ? std::max(lastLength - 1, 0) : here.agree(at - lastDistance);
      distance = again > best ? lastDistance : distance;
      best = std::max(best, again);
      if (best == kLongest) [[unlikely]] {
        stretchEnd = repeatEnd(in, size, i + kLongest, distance);
        stretchDistance = distance;
        continue;
      }
      // The slot two positions on, as most positions start no run, is
      // fetched while this one's candidates are compared; its key serves
      // that position if it starts no run.
      const std::uint32_t slot =
          run == 1 && keyedFor[i & 1] == i ? keyed[i & 1] : index.key(at, run, kLongest);
      keyed[i & 1] = index.key(at + 2, 1, kLongest);
      keyedFor[i & 1] = i + 2;
      __builtin_prefetch(&index.slots[keyed[i & 1]]);
      const auto [found, back] = index.insertWide(at, here, position, slot, best, crowding);
      distance = found > best ? back : distance;
      best = std::max(best, found);
    } else if (const int limit = static_cast<int>(std::min<std::size_t>(kLongest, size - i));
               limit >= kCodedFrom) {
      const bool wide = size - i >= 32;
      const int run = runAt(in + i, limit, wide);
      if (i > 0 && in[i - 1] == in[i]) {
        best = run;
        distance = 1;
      } else if (run >= kCodedFrom) {
        const std::uint32_t source = index.runSource(in[i], run, position);
        if (source != position) {
          best = agreeing(in + source, in + i, 0, limit, wide);
          distance = position - source;
        }
        index.runStarts(in[i], run, position);
      }
      if (lastLength >= kCodedFrom && lastDistance != 1 && best < limit) {
        const int agree = agreeing(in + i - lastDistance, in + i, 0, limit, wide);
        if (agree > best) {
          best = agree;
          distance = lastDistance;
        }
      }
      if (best == kLongest) {
        stretchEnd = repeatEnd(in, size, i + kLongest, distance);
        stretchDistance = distance;
        continue;
      }
      const auto [found, back] = index.insert(in + i, position, run, limit, wide);
      if (found > best) {
        best = found;
        distance = back;
      }
    }
    if (best < kCodedFrom) best = 0;
    misses = best ? 0 : misses + 1;
    unmatched += best == 0;
    lengths[i - from] = static_cast<std::uint8_t>(best);
    distances[i - from] = static_cast<std::uint16_t>(distance);
    lastLength = best;
    lastDistance = distance;
    ++i;
  }

  noisy_ = unmatched * kNoisyOneIn > to - from;
  misses_ = misses;
  stretchEnd_ = stretchEnd;
  stretchDistance_ = stretchDistance;
  lastLength_ = lastLength;
  lastDistance_ = lastDistance;
}

}  // namespace orvante::lzss
