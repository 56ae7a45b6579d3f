// The compressor: the longest match at every position, the cheapest parse
// over a block of them, and the units written. Each block's parse is cut at
// its end; only its units up to a tail before that end are written, and
// the next block starts where they stop, so the cut costs nothing where the
// parse settles within the tail. The work stays in the cache, and the
// scratch memory is small enough to be reused from call to call.

#include <orvante/lzss.hpp>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "cheapest_parse.hpp"
#include "helper_threads.hpp"
#include "longest_matches.hpp"
#include "ring.hpp"

namespace orvante::lzss {
namespace {

constexpr std::size_t kBlock = 4 << 10;
constexpr std::size_t kTail = 256;

// Inputs of twice this or more are cut into parts of at least this many
// bytes, a power of two of them, at most kMostParts, which are compressed
// side by side. The cut depends on the size alone, so the stream is the
// same whatever the cores. A seam costs a unit where a match would have
// crossed it: a few bytes against a label's hundreds saved.
constexpr std::size_t kPartAtLeast = 48 << 10;
constexpr std::size_t kMostParts = 8;

std::size_t partsFor(std::size_t size) {
  return std::min(kMostParts, std::bit_floor(std::max<std::size_t>(1, size / kPartAtLeast)));
}

struct Scratch {
  std::uint8_t longest[kBlock];
  std::uint8_t taken[kBlock + 16];  // and 16 that end a run of literals
  std::uint16_t distances[kBlock];
  Cost costs[kBlock + kCostPadding];
  // A block's units: a flag byte, then 8 units of 1 (literal) or 2 (match)
  // bytes, so at most 9 bytes for 8 input bytes; a group left open by the
  // block before; and room for literals copied eight bytes at a time.
  std::uint8_t units[kBlock + kBlock / 8 + 32];
};

// The first position from `from` on that the parse does not take as a
// literal; `taken` ends with a length other than 1.
std::size_t literalsFrom(const std::uint8_t* taken, std::size_t from) {
#if defined(__SSE2__)
  for (;; from += 16) {
    const auto literals = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(taken + from)), _mm_set1_epi8(1))));
    if (literals != 0xFFFF) return from + static_cast<unsigned>(__builtin_ctz(~literals));
  }
#else
  while (taken[from] == 1) ++from;
  return from;
#endif
}

// A part's stream, in groups of its own; the last holds `units` units.
struct Part {
  Bytes stream;
  std::size_t lastFlags = 0;  // where the last group starts
  unsigned units = 8;
};

// The stream of the input from `from` to the end of `input`, which is cut
// where the part ends, so matches stay within it; the window before `from`
// goes in the finder's tables first.
Part compressPart(ByteView input, std::size_t from) {
  const std::size_t size = input.size();
  const std::uint8_t* in = input.data();
  auto scratch = std::make_unique_for_overwrite<Scratch>();
  LongestMatches finder(input);
  Part part;
  Bytes& out = part.stream;
  const std::size_t window = std::min<std::size_t>(from, kRing - 1);
  finder.find(from - window, from, scratch->longest, scratch->distances);

  std::uint8_t* write = scratch->units;
  std::uint8_t* flags = nullptr;
  unsigned unit = 8;  // units in the current group
  // Matches are known for [start, found); the block parses [start, end).
  std::size_t start = from, found = from;
  while (start < size) {
    const std::size_t end = std::min(size, start + kBlock);
    finder.find(found, end, &scratch->longest[found - start], &scratch->distances[found - start]);
    found = end;
    chooseCheapest(end - start, scratch->longest, scratch->taken, scratch->costs);
    const std::size_t keep = end == size ? size : end - kTail;
    std::memset(scratch->taken + (end - start), 0, 16);
    auto group = [&] {
      if (unit == 8) {
        flags = write++;
        *flags = 0;
        unit = 0;
      }
    };
    std::size_t i = start;
    while (i < keep) {
      // The literals up to the next match, group by group.
      const std::size_t next = std::min(keep, start + literalsFrom(scratch->taken, i - start));
      while (i < next) {
        group();
        const auto count = static_cast<unsigned>(std::min<std::size_t>(next - i, 8 - unit));
        // Eight bytes go at once where the input has them; the units that
        // follow write over the rest.
        std::memcpy(write, in + i, size - i >= 8 ? 8 : count);
        *flags |= static_cast<std::uint8_t>(((1u << count) - 1) << unit);
        write += count;
        unit += count;
        i += count;
      }
      if (i == keep) break;
      group();
      // The ring slot the source went to; the first input byte went to
      // kStart.
      const std::size_t length = scratch->taken[i - start];
      const auto slot = static_cast<std::uint32_t>(
          (kStart + i - scratch->distances[i - start]) & (kRing - 1));
      write[0] = static_cast<std::uint8_t>(slot);
      write[1] = static_cast<std::uint8_t>(((slot >> 4) & 0xF0) | (length - kCodedFrom));
      write += 2;
      ++unit;
      i += length;
    }
    // Whole groups go out; an open one waits at the front for the next
    // block's units. The tail's matches serve the next block.
    std::uint8_t* const done = i == size || unit == 8 ? write : flags;
    if (start == from) {
      // Room for the part at the first block's rate and a quarter more.
      const double rate =
          static_cast<double>(done - scratch->units) / static_cast<double>(i - from);
      out.reserve(static_cast<std::size_t>(rate * 1.25 * static_cast<double>(size - from)) + 64);
    }
    if (flags) part.lastFlags = out.size() + static_cast<std::size_t>(flags - scratch->units);
    out.insert(out.end(), scratch->units, done);
    const auto open = static_cast<std::size_t>(write - done);
    std::memmove(scratch->units, done, open);
    flags = scratch->units;
    write = scratch->units + open;
    std::memmove(scratch->longest, &scratch->longest[i - start], end - i);
    std::memmove(scratch->distances, &scratch->distances[i - start],
                 (end - i) * sizeof scratch->distances[0]);
    start = i;
  }
  part.units = unit;
  return part;
}

// A part's stream appended to `out` after a last group of `units` units,
// which the part's first units fill: each of the part's groups goes out cut
// in two at the same unit, its first units closing the open group and the
// rest opening the next. Returns where the output ends.
std::uint8_t* append(std::uint8_t* out, std::uint8_t*& lastFlags, unsigned& units,
                     const Part& part) {
  const std::uint8_t* at = part.stream.data();
  const std::uint8_t* const end = at + part.stream.size();
  if (units == 8) {
    std::memcpy(out, at, part.stream.size());
    lastFlags = out + part.lastFlags;
    units = part.units;
    return out + part.stream.size();
  }
  const unsigned first = 8 - units;
  while (at < end) {
    const unsigned literals = *at++;
    // The bytes of units `from` to `to` of the group: 2 for a match, 1 for
    // a literal.
    auto bytesOf = [&](unsigned from, unsigned to) {
      const unsigned mask = (1u << to) - (1u << from);
      return 2 * (to - from) - static_cast<unsigned>(std::popcount(literals & mask));
    };
    // Only the last group may hold fewer than 8.
    const unsigned count = at + bytesOf(0, part.units) == end ? part.units : 8;
    const unsigned closing = std::min(first, count);
    *lastFlags |= static_cast<std::uint8_t>((literals & ((1u << closing) - 1)) << units);
    const unsigned head = bytesOf(0, closing);
    std::memcpy(out, at, head);
    out += head;
    at += head;
    if (count == closing) {
      units += count;
      continue;
    }
    lastFlags = out++;
    *lastFlags = static_cast<std::uint8_t>(literals >> closing);
    const unsigned rest = bytesOf(closing, count);
    std::memcpy(out, at, rest);
    out += rest;
    at += rest;
    units = count - closing;
  }
  return out;
}

}  // namespace

Bytes compress(ByteView input) {
  const std::size_t parts = partsFor(input.size());
  if (parts == 1) return compressPart(input, 0).stream;
  std::vector<Part> done(parts);
  const std::size_t each = input.size() / parts;
  runSideBySide(parts, [&](std::size_t k) {
    done[k] = compressPart(input.first(k + 1 == parts ? input.size() : (k + 1) * each), k * each);
  });
  // Regrouping never adds a group.
  std::size_t total = 0;
  for (const Part& part : done) total += part.stream.size();
  Bytes out(total);
  std::uint8_t* write = out.data();
  std::uint8_t* lastFlags = nullptr;
  unsigned units = 8;
  for (const Part& part : done) write = append(write, lastFlags, units, part);
  out.resize(static_cast<std::size_t>(write - out.data()));
  return out;
}

}  // namespace orvante::lzss
