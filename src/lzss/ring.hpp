#pragma once
// The encoder's fixed geometry. The compressed stream depends on all of it.

#include <cstdint>

namespace orvante::lzss {

inline constexpr std::int32_t kRing = 4096;               // ring size
inline constexpr std::int32_t kLongest = 18;              // longest match, look-ahead length
inline constexpr std::int32_t kCodedFrom = 3;             // shorter matches go as literals
inline constexpr std::int32_t kNone = kRing;              // empty tree link
inline constexpr std::int32_t kStart = kRing - kLongest;  // 4078, the first write position
inline constexpr std::uint8_t kFill = 0x20;               // ring content before any input

}  // namespace orvante::lzss
