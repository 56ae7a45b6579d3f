// The decoder: keeps a ring in step with the encoder's (0x20 fill, first
// byte at 4078) and copies matches byte by byte, so a match may overlap
// the bytes it produces.

#include <orvante/lzss.hpp>

#include <array>
#include <bitset>
#include <string>

#include "ring.hpp"

namespace orvante::lzss {

Bytes decode(ByteView stream, std::size_t expected) {
  std::array<std::uint8_t, kRing> ring;
  ring.fill(kFill);
  // Positions that hold a byte a decoder knows: the fill, and all written.
  std::bitset<kRing> known;
  for (std::int32_t i = 0; i < kStart; ++i) known.set(i);
  std::int32_t r = kStart;
  // A flag byte and eight two-byte matches (17 bytes) give at most 8 x 18
  // bytes, so a stream can never expand past that; larger claims fail here,
  // before anything is allocated for them.
  constexpr std::size_t kGroupBytes = 17, kGroupMost = 8 * 18;
  if (expected / kGroupMost > stream.size() / kGroupBytes + 1) {
    throw DecodeError("a stream of " + std::to_string(stream.size()) + " bytes cannot give " +
                      std::to_string(expected));
  }
  Bytes out;
  out.reserve(expected);
  std::size_t at = 0;

  auto put = [&](std::uint8_t byte) {
    out.push_back(byte);
    ring[r] = byte;
    known.set(r);
    r = (r + 1) & (kRing - 1);
  };

  while (out.size() < expected) {
    if (at >= stream.size())
      throw DecodeError("the stream ends before " + std::to_string(expected) + " bytes");
    const std::uint8_t flags = stream[at++];
    for (int bit = 0; bit < 8 && out.size() < expected; ++bit) {
      if (flags & (1u << bit)) {
        if (at >= stream.size()) throw DecodeError("the stream ends inside a group");
        put(stream[at++]);
        continue;
      }
      if (at + 1 >= stream.size()) throw DecodeError("the stream ends inside a match");
      const std::int32_t position = stream[at] | ((stream[at + 1] & 0xF0) << 4);
      const std::int32_t length = (stream[at + 1] & 0x0F) + kCodedFrom;
      at += 2;
      if (out.size() + static_cast<std::size_t>(length) > expected) {
        throw DecodeError("a match runs past the expected size");
      }
      for (std::int32_t k = 0; k < length; ++k) {
        const std::int32_t from = (position + k) & (kRing - 1);
        if (!known.test(from)) throw DecodeError("a match refers to a ring position never filled");
        put(ring[from]);
      }
    }
  }
  if (at != stream.size()) throw DecodeError("the stream runs past the expected size");
  return out;
}

}  // namespace orvante::lzss
