#pragma once
// A decoder that knows nothing of the ring's initial fill: a match that
// reads a slot no earlier output byte wrote is an error, as it would be on
// a printer whose ring starts with other bytes. For the compressor's tests
// and fuzz target; the library's decoder counts the fill as known.

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <string>

#include <orvante/bytes.hpp>

namespace orvante::testing {

// The decoded bytes, or why the stream is not one the compressor may give.
struct StrictDecoding {
  Bytes bytes;
  std::string fault;  // empty when the stream is good
};

inline StrictDecoding strictDecode(ByteView stream, std::size_t expected) {
  constexpr std::uint32_t kRing = 4096, kStart = 4078;
  std::array<std::uint8_t, kRing> ring{};
  std::bitset<kRing> written;
  std::uint32_t next = kStart;
  StrictDecoding result;
  auto fail = [&](std::string why) {
    result.fault = std::move(why) + " (at output byte " + std::to_string(result.bytes.size()) + ")";
    return result;
  };
  std::size_t at = 0;
  while (result.bytes.size() < expected) {
    if (at >= stream.size()) return fail("the stream ends early");
    const std::uint8_t flags = stream[at++];
    for (int bit = 0; bit < 8 && result.bytes.size() < expected; ++bit) {
      if (flags & (1u << bit)) {
        if (at >= stream.size()) return fail("the stream ends inside a group");
        ring[next] = stream[at++];
        written.set(next);
        result.bytes.push_back(ring[next]);
        next = (next + 1) % kRing;
        continue;
      }
      if (at + 1 >= stream.size()) return fail("the stream ends inside a match");
      const std::uint32_t slot = stream[at] | (stream[at + 1] & 0xF0u) << 4;
      const std::uint32_t length = (stream[at + 1] & 0x0Fu) + 3;
      at += 2;
      if (result.bytes.size() + length > expected) return fail("a match runs past the end");
      for (std::uint32_t k = 0; k < length; ++k) {
        const std::uint32_t from = (slot + k) % kRing;
        if (!written.test(from)) return fail("a match reads a slot nothing wrote");
        ring[next] = ring[from];
        written.set(next);
        result.bytes.push_back(ring[next]);
        next = (next + 1) % kRing;
      }
    }
  }
  if (at != stream.size()) return fail("the stream runs past the end");
  return result;
}

}  // namespace orvante::testing
