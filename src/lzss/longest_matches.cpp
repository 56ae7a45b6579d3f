// Binary trees over the last 4095 positions, one for each hash of their
// first three bytes, ordered by the 18 bytes that start at each position:
// inserting a position walks down past its closest neighbours, which hold
// the longest match. A position whose 18 bytes equal a node's takes that
// node's place, as the node can no longer give anything longer.
//
// Label rasters are mostly runs of one byte and rows that repeat the row
// above. Two cheap tries come before the trees: distance 1 and the distance
// that served the position before. When one gives 18 bytes, the repeat is
// followed to its end at once: every position up to 18 before that end has
// 18 bytes at the same distance, with no tree work. Those positions stay
// out of the trees while the position that went in with the same bytes is
// recent enough to stand for them.

#include "longest_matches.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include "ring.hpp"

namespace orvante::lzss {
namespace {

constexpr int kDepth = 48;  // nodes visited at most
// A stretch position goes into the trees when the position that last went
// in with the same 18 bytes is this far back, so that those bytes stay
// within reach after it has left the window; one in kRefreshEvery does, as
// its neighbours' matches one byte off serve nearly as well.
constexpr std::uint32_t kRefresh = 2048;
constexpr std::uint32_t kRefreshEvery = 4;
// After this many positions without a match the input counts as
// incompressible: the search thins out to one position in up to kSparsest
// until it meets a match again, so random bytes cost little time (and lose
// the few chance matches of three bytes they hold).
constexpr std::size_t kPatience = 256;
constexpr std::size_t kSparsest = 16;
constexpr std::uint32_t kCyclic = 4096;  // tree slots, one per position
// Positions are kept as 32-bit numbers, which wrap on inputs of 4 GiB and
// more; a node is used only when its distance back is 1 to 4095. An empty
// link holds a position 2 GiB away, out of reach for the first 2 GiB of
// input (past that, at worst a real position whose bytes are compared).
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

struct LongestMatches::Tree {
  explicit Tree(std::size_t inputSize)
      : bits(std::clamp(static_cast<int>(std::bit_width(inputSize)), 8, 13)),
        heads(std::size_t{1} << bits, kEmpty) {
    std::fill(std::begin(holder), std::end(holder), kEmpty);
    std::fill(&runs[0][0], &runs[0][0] + sizeof runs / sizeof runs[0][0], kEmpty);
  }

  // The tree of a position that starts with `run` equal bytes: by its first
  // three bytes, or for a run of 2 or more by the byte, the run's length and
  // the byte that ends it. A match longer than the run can only come from a
  // position with the same run and end, so runs of one byte, common in
  // rasters, do not crowd one tree.
  std::uint32_t key(const std::uint8_t* at, int run, int limit) const {
    const std::uint32_t three =
        run == 1 ? at[0] | at[1] << 8 | at[2] << 16
                 : 0x80000000u | at[0] | static_cast<std::uint32_t>(run) << 8 |
                       (run < limit ? at[run] : 0u) << 16;
    return (three * 2654435761u) >> (32 - bits);
  }

  // Inserts `position` (whose `limit` bytes may be read, 32 when `wide`,
  // and whose first `run` bytes are equal) and returns the longest match
  // among the nodes, of length 0 if none.
  std::pair<int, std::uint32_t> insert(const std::uint8_t* at, std::uint32_t position,
                                       int run, int limit, bool wide) {
    int best = 0;
    std::uint32_t distance = 0;
    const std::uint32_t slot = key(at, run, limit);
    std::uint32_t node = heads[slot];
    heads[slot] = position;
    holder[position & (kCyclic - 1)] = position;
    // A node's pair: the subtree of smaller strings, then of larger.
    std::uint32_t* own = &sons[(position & (kCyclic - 1)) * 2];
    std::uint32_t* openSmaller = own;      // where the next smaller node met goes
    std::uint32_t* openLarger = own + 1;   // and the next larger
    int agreedSmaller = 0, agreedLarger = 0;
    for (int depth = kDepth; depth > 0; --depth) {
      const std::uint32_t back = position - node;
      if (back - 1 >= kCyclic - 1) break;
      std::uint32_t* pair = &sons[(node & (kCyclic - 1)) * 2];
      const std::uint8_t* from = at - back;
      const int agree = agreeing(from, at, std::min(agreedSmaller, agreedLarger), limit, wide);
      distance = agree > best ? back : distance;
      best = std::max(best, agree);
      if (agree == limit) {
        *openSmaller = pair[0];
        *openLarger = pair[1];
        return {best, distance};
      }
      if (from[agree] < at[agree]) {
        *openSmaller = node;
        openSmaller = pair + 1;
        agreedSmaller = agree;
        node = pair[1];
      } else {
        *openLarger = node;
        openLarger = pair;
        agreedLarger = agree;
        node = pair[0];
      }
    }
    *openSmaller = *openLarger = kEmpty;
    return {best, distance};
  }

  // The holders of the stretch positions from `from` to `to`: each its
  // source's, unless that one has grown old and the position goes into the
  // trees itself. A run (distance 1) carries one holder along.
  void holdStretch(const std::uint8_t* in, std::size_t size, std::size_t from, std::size_t to,
                   std::uint32_t distance) {
    std::uint32_t held = holder[(from - distance) & (kCyclic - 1)];
    for (std::size_t k = from; k < to; ++k) {
      const auto position = static_cast<std::uint32_t>(k);
      if (distance != 1) held = holder[(position - distance) & (kCyclic - 1)];
      if (position - held >= kRefresh && position % kRefreshEvery == 0) {
        const bool wide = size - k >= 32;
        insert(in + k, position, runAt(in + k, kLongest, wide), kLongest, wide);
        held = position;
      } else {
        holder[position & (kCyclic - 1)] = held;
      }
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

  int bits;
  std::vector<std::uint32_t> heads;
  std::uint32_t runs[256][kLongest - kCodedFrom + 1];
  std::uint32_t sons[2 * kCyclic];
  // For each of the last 4096 positions, the one in the trees that starts
  // with the same 18 bytes: itself, or for a stretch position what its
  // source had.
  std::uint32_t holder[kCyclic];
};

LongestMatches::LongestMatches(ByteView input)
    : input_(input), tree_(std::make_unique<Tree>(input.size())) {}

LongestMatches::~LongestMatches() = default;

void LongestMatches::find(std::size_t from, std::size_t to, std::uint8_t* lengths,
                          std::uint16_t* distances) {
  // Kept in locals: the byte stores below may alias any member.
  const std::uint8_t* in = input_.data();
  const std::size_t size = input_.size();
  Tree& tree = *tree_;
  std::size_t stretchEnd = stretchEnd_;
  std::uint32_t stretchDistance = stretchDistance_;
  int lastLength = lastLength_;
  std::uint32_t lastDistance = lastDistance_;

  std::size_t misses = misses_;
  std::size_t i = from;
  while (i < to) {
    if (misses > kPatience) {
      // Incompressible so far: positions are searched ever more sparsely,
      // the others go into no tree, until a match is met again.
      const std::size_t step = std::min(kSparsest, (misses - kPatience) / 32 + 1);
      const std::size_t stop = std::min(to, i + step - 1);
      std::memset(lengths + (i - from), 0, stop - i);
      for (std::size_t k = i; k < stop; ++k) tree.holder[k & (kCyclic - 1)] = kEmpty;
      misses += stop - i;
      lastLength = 0;
      i = stop;
      if (i == to) break;
    }
    if (i + kLongest <= stretchEnd) {
      const std::size_t stop = std::min(to, stretchEnd - kLongest + 1);
      tree.holdStretch(in, size, i, stop, stretchDistance);
      if (stretchDistance == 1) tree.runStarts(in[i], kLongest, static_cast<std::uint32_t>(stop - 1));
      std::memset(lengths + (i - from), kLongest, stop - i);
      fill16(distances + (i - from), stop - i, static_cast<std::uint16_t>(stretchDistance));
      lastLength = kLongest;
      lastDistance = stretchDistance;
      misses = 0;
      i = stop;
      continue;
    }
    const int limit = static_cast<int>(std::min<std::size_t>(kLongest, size - i));
    int best = 0;
    std::uint32_t distance = 0;
    if (limit >= kCodedFrom) {
      const bool wide = size - i >= 32;
      const int run = runAt(in + i, limit, wide);
      const auto position = static_cast<std::uint32_t>(i);
      if (i > 0 && in[i - 1] == in[i]) {
        best = run;  // the run, from the byte before
        distance = 1;
      } else if (run >= kCodedFrom) {
        const std::uint32_t source = tree.runSource(in[i], run, position);
        if (source != position) {
          best = agreeing(in + source, in + i, 0, limit, wide);
          distance = position - source;
        }
        tree.runStarts(in[i], run, position);
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
      const auto [found, back] = tree.insert(in + i, position, run, limit, wide);
      if (found > best) {
        best = found;
        distance = back;
      }
    }
    if (best < kCodedFrom) best = 0;
    misses = best ? 0 : misses + 1;
    lengths[i - from] = static_cast<std::uint8_t>(best);
    distances[i - from] = static_cast<std::uint16_t>(distance);
    lastLength = best;
    lastDistance = distance;
    ++i;
  }

  misses_ = misses;
  stretchEnd_ = stretchEnd;
  stretchDistance_ = stretchDistance;
  lastLength_ = lastLength;
  lastDistance_ = lastDistance;
}

}  // namespace orvante::lzss
