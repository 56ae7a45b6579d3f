#pragma once
// The reentrant door to the LZSS encoder, and its decoder.

#include <orvante/bytes.hpp>
#include <orvante/error.hpp>
#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante::lzss {

// The stream LZSSEncoding gives for the same input on its first call, with
// no console output; safe to call from any thread.
Bytes encode(ByteView input);

// A stream of the same format that decodes to the input, built for speed
// and the fewest bytes; its matches copy only bytes of the input itself,
// never the ring's initial fill. On label rasters it is smaller than
// `encode`'s; on some dithered photos it may be larger by up to 0.4 %, as
// its search is not exhaustive. Inputs of 96 KiB and more are cut in parts
// that idle cores compress side by side (one calling thread at a time has
// them; others work alone); the stream depends on the input alone, and
// each seam between parts may cost a unit (2 or 3 bytes). Safe to
// call from any thread, and after a fork; each calling thread, and each of
// the helper threads started at the first large input, keeps about 620 KB
// of match tables for its next call.
Bytes compress(ByteView input);

// A stream that is truncated, refers to ring positions nothing has filled,
// or runs past the expected size.
class DecodeError : public Error {
 public:
  using Error::Error;
};

// Expands a stream to exactly `expected` bytes; the stream must end there.
Bytes decode(ByteView stream, std::size_t expected);

}  // namespace orvante::lzss

ORVANTE_API_END
