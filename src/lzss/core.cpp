// The reentrant encoder: the same loop and match finder as the C functions,
// on state of its own that starts as the globals do when the library is
// loaded (all zero), with no console output.

#include <orvante/lzss.hpp>

#include <memory>

#include "encode_loop.hpp"

namespace orvante::lzss {
namespace {

struct State {
  std::uint8_t text[4113] = {};
  std::int32_t lson[4097] = {};
  std::int32_t rson[4353] = {};
  std::int32_t dad[4097] = {};
  std::int32_t matchPosition = 0;
  std::int32_t matchLength = 0;
  std::uint64_t textsize = 0;
  std::uint64_t codesize = 0;
};

struct BufferIo {
  ByteView input;
  std::size_t next_ = 0;
  Bytes output;

  bool atEnd() const { return next_ >= input.size(); }
  std::uint8_t next() { return input[next_++]; }
  void emit(const std::uint8_t* bytes, int count) {
    output.insert(output.end(), bytes, bytes + count);
  }
  void progress(std::uint64_t) {}
  void summary(std::uint64_t, std::uint64_t) {}
};

}  // namespace

Bytes encode(ByteView input) {
  auto state = std::make_unique<State>();
  MatchFinder finder{state->text, state->lson,          state->rson,
                     state->dad,  state->matchPosition, state->matchLength};
  BufferIo io{input, 0, {}};
  // Typical rasters compress to well under half; one reservation covers most.
  io.output.reserve(input.size() / 2 + 16);
  encodeLoop(finder, {state->textsize, state->codesize}, io);
  return std::move(io.output);
}

}  // namespace orvante::lzss
