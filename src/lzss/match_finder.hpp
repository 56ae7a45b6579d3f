#pragma once
// The binary-tree match finder over the ring, shared by the C functions
// (working on their globals) and the reentrant encoder (on its own state).

#include <cstdint>

#include "ring.hpp"

namespace orvante::lzss {

struct MatchFinder {
  std::uint8_t* text;  // 4113 bytes
  std::int32_t* lson;  // 4097
  std::int32_t* rson;  // 4353
  std::int32_t* dad;   // 4097
  std::int32_t& matchPosition;
  std::int32_t& matchLength;

  void initTree() {
    for (std::int32_t i = kRing + 1; i <= kRing + 256; ++i) rson[i] = kNone;
    for (std::int32_t i = 0; i < kRing; ++i) dad[i] = kNone;
  }

  // Inserts the string at r and finds the longest match on the way. Of
  // equally long matches the first met from the root is kept. A full-length
  // match replaces the old node, which leaves the tree.
  void insertNode(std::int32_t r) {
    const std::uint8_t* key = &text[r];
    std::int32_t cmp = 1;
    std::int32_t p = kRing + 1 + key[0];
    rson[r] = lson[r] = kNone;
    matchLength = 0;
    for (;;) {
      if (cmp >= 0) {
        if (rson[p] == kNone) {
          rson[p] = r;
          dad[r] = p;
          return;
        }
        p = rson[p];
      } else {
        if (lson[p] == kNone) {
          lson[p] = r;
          dad[r] = p;
          return;
        }
        p = lson[p];
      }
      std::int32_t i = 1;
      for (; i < kLongest; ++i) {
        cmp = static_cast<std::int32_t>(key[i]) - static_cast<std::int32_t>(text[p + i]);
        if (cmp != 0) break;
      }
      if (i > matchLength) {
        matchPosition = p;
        matchLength = i;
        if (i >= kLongest) break;
      }
    }
    dad[r] = dad[p];
    lson[r] = lson[p];
    rson[r] = rson[p];
    dad[lson[p]] = r;
    dad[rson[p]] = r;
    if (rson[dad[p]] == p) {
      rson[dad[p]] = r;
    } else {
      lson[dad[p]] = r;
    }
    dad[p] = kNone;
  }

  void deleteNode(std::int32_t p) {
    if (dad[p] == kNone) return;
    std::int32_t q;
    if (rson[p] == kNone) {
      q = lson[p];
    } else if (lson[p] == kNone) {
      q = rson[p];
    } else {
      q = lson[p];
      if (rson[q] != kNone) {
        do {
          q = rson[q];
        } while (rson[q] != kNone);
        rson[dad[q]] = lson[q];
        dad[lson[q]] = dad[q];
        lson[q] = lson[p];
        dad[lson[p]] = q;
      }
      rson[q] = rson[p];
      dad[rson[p]] = q;
    }
    dad[q] = dad[p];
    if (rson[dad[p]] == p) {
      rson[dad[p]] = q;
    } else {
      lson[dad[p]] = q;
    }
    dad[p] = kNone;
  }
};

}  // namespace orvante::lzss
