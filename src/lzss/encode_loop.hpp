#pragma once
// The encoding loop, shared by the C functions and the reentrant encoder.
// Io supplies input, output and the console traces:
//   bool atEnd(); std::uint8_t next(); void emit(const std::uint8_t*, int);
//   void progress(std::uint64_t textsize); void summary(codesize, textsize);

#include <cstdint>

#include "match_finder.hpp"

namespace orvante::lzss {

struct Counters {
  std::uint64_t& textsize;
  std::uint64_t& codesize;
};

template <class Io>
void encodeLoop(MatchFinder& finder, Counters counters, Io& io) {
  std::uint8_t* text = finder.text;
  finder.initTree();
  // A group: a flag byte, then up to 8 units of 1 (literal) or 2 (match) bytes.
  std::uint8_t group[17] = {0};
  int groupSize = 1;
  std::uint8_t mask = 1;
  std::int32_t s = 0;
  std::int32_t r = kStart;
  for (std::int32_t i = 0; i < kStart; ++i) text[i] = kFill;

  std::int32_t len = 0;
  while (len < kLongest && !io.atEnd()) text[r + len++] = io.next();
  counters.textsize = static_cast<std::uint64_t>(len);
  if (len == 0) return;

  for (std::int32_t i = 1; i <= kLongest; ++i) finder.insertNode(r - i);
  finder.insertNode(r);

  do {
    if (finder.matchLength > len) finder.matchLength = len;
    if (finder.matchLength < kCodedFrom) {
      finder.matchLength = 1;
      group[0] |= mask;
      group[groupSize++] = text[r];
    } else {
      group[groupSize++] = static_cast<std::uint8_t>(finder.matchPosition);
      group[groupSize++] = static_cast<std::uint8_t>(((finder.matchPosition >> 4) & 0xF0) |
                                                     (finder.matchLength - kCodedFrom));
    }
    mask = static_cast<std::uint8_t>(mask << 1);
    if (mask == 0) {
      io.emit(group, groupSize);
      counters.codesize += static_cast<std::uint64_t>(groupSize);
      group[0] = 0;
      groupSize = 1;
      mask = 1;
    }

    const std::int32_t last = finder.matchLength;
    std::int32_t i = 0;
    for (; i < last && !io.atEnd(); ++i) {
      const std::uint8_t c = io.next();
      finder.deleteNode(s);
      text[s] = c;
      // The mirror lets an 18-byte comparison near the ring's end not wrap.
      if (s < kLongest - 1) text[s + kRing] = c;
      s = (s + 1) & (kRing - 1);
      r = (r + 1) & (kRing - 1);
      finder.insertNode(r);
    }
    counters.textsize += static_cast<std::uint64_t>(i);
    io.progress(counters.textsize);

    // The input is exhausted: drain the look-ahead.
    while (i++ < last) {
      finder.deleteNode(s);
      s = (s + 1) & (kRing - 1);
      r = (r + 1) & (kRing - 1);
      if (--len) finder.insertNode(r);
    }
  } while (len > 0);

  if (groupSize > 1) {
    io.emit(group, groupSize);
    counters.codesize += static_cast<std::uint64_t>(groupSize);
  }
  io.summary(counters.codesize, counters.textsize);
}

}  // namespace orvante::lzss
