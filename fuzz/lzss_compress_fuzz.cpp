// Arbitrary bytes through lzss::compress: the stream must decode to them
// exactly, stay within 9 bytes for 8, and refer only to ring slots that
// earlier output bytes wrote, as a printer whose ring starts with other
// bytes than spaces would read it. Each input also goes through a second
// time tiled into a longer one, copies a byte apart, so repeats meet the
// ring's size, its wrap, the compressor's blocks and, from 96 KiB on, the
// seams of the parts it compresses side by side.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <orvante/lzss.hpp>

#include "strict_lzss.hpp"

namespace {

void check(orvante::ByteView input) {
  const orvante::Bytes stream = orvante::lzss::compress(input);
  if (stream.size() > input.size() + (input.size() + 7) / 8) __builtin_trap();
  const auto strict = orvante::testing::strictDecode(stream, input.size());
  if (!strict.fault.empty()) __builtin_trap();
  if (!std::equal(strict.bytes.begin(), strict.bytes.end(), input.begin(), input.end()))
    __builtin_trap();
  if (orvante::lzss::decode(stream, input.size()) != strict.bytes) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  check({data, size});
  if (size < 2) return 0;
  // The first byte tells how many copies (up to 64) and how long a run of
  // its own value leads them.
  const std::size_t copies = 1 + data[0] % 64, run = data[0] * 32u;
  orvante::Bytes tiled(run, data[1]);
  for (std::size_t copy = 0; copy < copies; ++copy) {
    tiled.insert(tiled.end(), data + 1, data + size);
    tiled.back() ^= static_cast<std::uint8_t>(copy);
  }
  check(tiled);
  return 0;
}
