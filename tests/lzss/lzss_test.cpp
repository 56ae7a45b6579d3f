// The LZSS encoder's two doors, the fast compressor of the same stream, and
// the decoder.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <random>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <orvante/lzss.h>
#include <orvante/lzss.hpp>

#include "lzss/cheapest_parse.hpp"
#include "lzss/helper_threads.hpp"
#include "raster/dither.hpp"
#include "rings_photo.hpp"
#include "strict_lzss.hpp"

using namespace orvante;

namespace {

// The C functions' result, copied as callers must; their console traces go
// to the returned text.
Bytes encodeThroughC(ByteView input, std::string* traces = nullptr) {
  ::testing::internal::CaptureStdout();
  const unsigned char* out = LZSSEncoding(input.data(), static_cast<std::int32_t>(input.size()));
  Bytes copied(out, out + GetEncodeDataSize());
  const std::string printed = ::testing::internal::GetCapturedStdout();
  if (traces) *traces = printed;
  return copied;
}

Bytes randomBytes(std::mt19937& rng, std::size_t size) {
  Bytes bytes(size);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(rng());
  return bytes;
}

// Runs of one value, as in sparse text.
Bytes runs(std::mt19937& rng, std::size_t size) {
  Bytes bytes;
  while (bytes.size() < size) {
    const auto value = static_cast<std::uint8_t>(rng() % 4 == 0 ? rng() : 0xFF);
    bytes.insert(bytes.end(), std::min<std::size_t>(size - bytes.size(), 1 + rng() % 300), value);
  }
  return bytes;
}

// A label: white rows with dark bars and a few glyph-like rows repeated.
Bytes labelRaster(std::mt19937& rng, std::size_t size) {
  const std::size_t row = 104;
  Bytes bytes(size, 0xFF);
  for (std::size_t i = 0; i < size; ++i) {
    const std::size_t line = i / row, column = i % row;
    if (line % 40 < 12 && column > 10 && column < 90 && (column * 7 + line) % 5 < 2)
      bytes[i] = 0x00;
    if (line % 97 == 3) bytes[i] = static_cast<std::uint8_t>(rng() & 0xF0);
  }
  return bytes;
}

// Dense small print: each dot row of random glyph cells, made of 4-dot
// blocks, drawn three times, so a row's bytes come from four values.
Bytes glyphRows(std::mt19937& rng, std::size_t size) {
  const std::size_t row = 102;
  const std::uint8_t blocks[] = {0x00, 0x0F, 0xF0, 0xFF};
  Bytes bytes;
  while (bytes.size() < size) {
    Bytes line(row, 0xFF);
    for (std::size_t column = 2; column < row - 2; ++column) line[column] = blocks[rng() % 4];
    for (int copy = 0; copy < 3; ++copy) bytes.insert(bytes.end(), line.begin(), line.end());
  }
  bytes.resize(size);
  return bytes;
}

// The rings photo dithered, about `size` bytes of raster; `ringWidth`: the
// rings' width. With error diffusion most positions repeat nothing.
Bytes ditheredRings(std::size_t size, Dither mode = Dither::FloydSteinberg, double ringWidth = 18) {
  const int width = 812, height = static_cast<int>(size * 8 / width) + 1;
  Bytes raster = raster::ditheredRaster(orvante::testing::ringsPhoto(width, height, ringWidth), mode).bytes;
  raster.resize(size);
  return raster;
}

// The units of a stream: a literal as its character, a match as
// "@position+length".
std::vector<std::string> units(ByteView stream) {
  std::vector<std::string> found;
  std::size_t at = 0;
  while (at < stream.size()) {
    const std::uint8_t flags = stream[at++];
    for (int bit = 0; bit < 8 && at < stream.size(); ++bit) {
      if (flags & (1 << bit)) {
        found.emplace_back(1, static_cast<char>(stream[at++]));
      } else {
        const int position = stream[at] | ((stream[at + 1] & 0xF0) << 4);
        found.push_back("@" + std::to_string(position) + "+" +
                        std::to_string((stream[at + 1] & 15) + 3));
        at += 2;
      }
    }
  }
  return found;
}

// The C functions' globals as they are when the library is loaded.
void freshEncoder() {
  std::fill(std::begin(text_buf), std::end(text_buf), 0);
  std::fill(std::begin(lson), std::end(lson), 0);
  std::fill(std::begin(rson), std::end(rson), 0);
  std::fill(std::begin(dad), std::end(dad), 0);
}

}  // namespace

TEST(Lzss, PublishedExamplesThroughBothDoors) {
  const std::vector<std::pair<Bytes, Bytes>> examples = {
      {{0x41}, {0x01, 0x41}},
      {bytesOf("ABCDEFGH"), {0xFF, 'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H'}},
      {Bytes(18, ' '), {0x00, 0xDC, 0xFF}},
      // The last ABCD meets three earlier ones of equal length; the first met
      // (position 4078) is kept.
      {bytesOf("ABCDXABCDYABCDZABCD"),
       {0x5F, 'A', 'B', 'C', 'D', 'X', 0xEE, 0xF1, 'Y', 0xEE, 0xF1, 0x01, 'Z', 0xEE, 0xF1}},
      // A match near the end is cut to what is left.
      {bytesOf("abcXYZabcXY"), {0x3F, 'a', 'b', 'c', 'X', 'Y', 'Z', 0xEE, 0xF2}},
      {{}, {}},
  };
  for (const auto& [input, expected] : examples) {
    freshEncoder();
    EXPECT_EQ(lzss::encode(input), expected) << textOf(input);
    EXPECT_EQ(encodeThroughC(input), expected) << textOf(input);
    EXPECT_EQ(GetEncodeDataSize(), expected.size());
    EXPECT_EQ(lzss::decode(expected, input.size()), input);
  }
}

TEST(Lzss, AMatchCutToTwoBytesGoesAsLiterals) {
  // The last "ab" sits before the ring's space fill, so it meets the
  // earlier "ab  " as a match of more than two bytes, which the two bytes
  // left cannot carry.
  const Bytes input = bytesOf("ab  QRSTUVWXYZ1234ab");
  const Bytes encoded = lzss::encode(input);
  EXPECT_EQ(lzss::decode(encoded, input.size()), input);
  const auto parsed = units(encoded);
  ASSERT_GE(parsed.size(), 2u);
  EXPECT_EQ(parsed[parsed.size() - 2], "a");
  EXPECT_EQ(parsed.back(), "b");
}

TEST(Lzss, TheCFunctionsTraceTheirWorkOnStandardOutput) {
  printcount = 0;  // as when the library is loaded
  std::string traces;
  encodeThroughC(Bytes{0x41}, &traces);
  EXPECT_EQ(traces, "0,11,11,1           1\rOut: 2 bytes\nOut/In: 2.000\n");
  EXPECT_EQ(printcount, 1024u);
  EXPECT_EQ(textsize, 1u);
  EXPECT_EQ(out_size, 2);

  // The progress threshold carries over: a smaller input prints no progress.
  encodeThroughC(Bytes{0x42}, &traces);
  EXPECT_EQ(traces, "0,11,11,1Out: 2 bytes\nOut/In: 2.000\n");

  // An empty input prints its one end test and nothing else.
  encodeThroughC({}, &traces);
  EXPECT_EQ(traces, "0,0");
  EXPECT_EQ(GetEncodeDataSize(), 0u);
  ::testing::internal::CaptureStdout();
  LZSSEncoding(nullptr, -5);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "0,-5");
}

TEST(Lzss, RoundTripsAndBothDoorsAgreeOnManyInputs) {
  std::mt19937 rng(20261122);
  for (int round = 0; round < 120; ++round) {
    const std::size_t size = round < 60 ? rng() % 300 : rng() % 20000;
    const Bytes input = round % 3 == 0   ? randomBytes(rng, size)
                        : round % 3 == 1 ? runs(rng, size)
                                         : labelRaster(rng, size);
    const Bytes encoded = lzss::encode(input);
    ASSERT_EQ(lzss::decode(encoded, input.size()), input) << round;
    // The C functions keep the ring's mirror and the look-ahead of the last
    // call; a short input can meet those stale bytes and break a tie
    // differently. From a fresh state, and for any input long enough to
    // overwrite them, the two doors agree byte for byte.
    if (size < 35) freshEncoder();
    const Bytes throughC = encodeThroughC(input);
    ASSERT_EQ(throughC, encoded) << round << " size " << size;
    ASSERT_EQ(lzss::decode(throughC, input.size()), input);
  }
}

TEST(Lzss, LargeInputsRoundTripThroughTheReentrantDoor) {
  std::mt19937 rng(7);
  for (std::size_t size : {65536u, 204800u}) {
    for (const Bytes& input : {randomBytes(rng, size), runs(rng, size), labelRaster(rng, size)}) {
      ASSERT_EQ(lzss::decode(lzss::encode(input), input.size()), input) << size;
    }
  }
}

TEST(Lzss, TheDecoderRefusesBrokenStreams) {
  const Bytes text = bytesOf("label label label label");
  const Bytes encoded = lzss::encode(text);
  // A match that copies bytes it is producing.
  EXPECT_EQ(lzss::decode(lzss::encode(Bytes(40, 'a')), 40), Bytes(40, 'a'));
  EXPECT_THROW(lzss::decode(ByteView(encoded).first(encoded.size() - 1), text.size()),
               lzss::DecodeError);
  EXPECT_THROW(lzss::decode(encoded, text.size() + 1), lzss::DecodeError);
  EXPECT_THROW(lzss::decode(encoded, text.size() - 2), lzss::DecodeError);
  // A match into ring positions the stream never filled.
  EXPECT_THROW(lzss::decode(Bytes{0x00, 0xF0, 0xF0}, 3), lzss::DecodeError);
  // A size no stream of that length can reach is refused before anything
  // is allocated for it.
  EXPECT_THROW(lzss::decode(encoded, SIZE_MAX), lzss::DecodeError);
  EXPECT_THROW(lzss::decode(encoded, std::size_t{1} << 40), lzss::DecodeError);
}

// Every input decodes back from compress's stream by a decoder that counts
// only the slots earlier output bytes wrote: the ring's space fill is never
// read, at any size, across the ring's wrap, the compressor's blocks and
// the seams of its parts.
TEST(LzssCompress, RoundTripsWithoutReadingTheRingsFill) {
  std::mt19937 rng(4096);
  std::vector<Bytes> inputs = {{}, {0x20}, {0x20, 0x20}, Bytes(3, 0x20), Bytes(40, ' '),
                               bytesOf("label label label label"), Bytes(20000, 0xFF)};
  // Inputs from 96 KiB on go in parts, whose streams are joined.
  for (std::size_t size : {4094u, 4095u, 4096u, 4097u, 4113u, 8192u, 8450u, 70000u, 98304u, 400001u}) {
    inputs.push_back(randomBytes(rng, size));
    inputs.push_back(runs(rng, size));
    inputs.push_back(labelRaster(rng, size));
  }
  // A block of 4096 bytes repeated: matches from the farthest slot back.
  Bytes twice = randomBytes(rng, 4096);
  twice.insert(twice.end(), twice.begin(), twice.end());
  inputs.push_back(twice);
  for (const Bytes& input : inputs) {
    const Bytes stream = lzss::compress(input);
    const auto strict = orvante::testing::strictDecode(stream, input.size());
    ASSERT_EQ(strict.fault, "") << input.size();
    ASSERT_EQ(strict.bytes, input) << input.size();
    ASSERT_EQ(lzss::decode(stream, input.size()), input);
    ASSERT_LE(stream.size(), input.size() + (input.size() + 7) / 8);
  }
  // The classic encoder's spaces come from the fill, which this decoder
  // refuses.
  EXPECT_NE(orvante::testing::strictDecode(lzss::encode(Bytes(40, ' ')), 40).fault, "");
}

// The parse's bits equal those of the plain shortest path, also where it
// takes a run of 18-byte matches at once: runs of about 21 positions
// followed by positions without a match are where a shortcut would lose.
TEST(LzssCompress, TheParseTakesTheFewestBits) {
  std::mt19937 rng(18);
  constexpr std::size_t kSize = 200;
  for (int trial = 0; trial < 2000; ++trial) {
    std::uint8_t longest[kSize], taken[kSize];
    lzss::Cost cost[kSize + lzss::kCostPadding];
    for (std::size_t i = 0; i < kSize;) {
      const bool full = rng() % 2;
      const std::size_t run = full ? 19 + rng() % 5 : 1 + rng() % 20;
      const std::size_t length = full ? 18 : (rng() % 4 ? 0 : 3 + rng() % 16);
      for (std::size_t k = 0; k < run && i < kSize; ++k, ++i) {
        longest[i] = static_cast<std::uint8_t>(std::min(length, kSize - i));
      }
    }
    lzss::chooseCheapest(kSize, longest, taken, cost);
    std::vector<int> fewest(kSize + 19, 1 << 20);
    fewest[kSize] = 0;
    for (std::size_t i = kSize; i-- > 0;) {
      fewest[i] = 9 + fewest[i + 1];
      for (int l = 3; l <= longest[i]; ++l) fewest[i] = std::min(fewest[i], 17 + fewest[i + l]);
    }
    int bits = 0;
    for (std::size_t i = 0; i < kSize; i += taken[i]) bits += taken[i] == 1 ? 9 : 17;
    ASSERT_EQ(bits, fewest[0]) << trial;
    ASSERT_EQ(cost[0] + 32768, fewest[0]) << trial;
  }
}

// On rasters the parse with the fewest bits never does worse than the
// classic encoder's greedy one, although it may not use the space fill;
// from 96 KiB on, each seam between parts may cost one unit more.
TEST(LzssCompress, NeverLargerThanTheClassicOnRasters) {
  std::mt19937 rng(203), glyphs(812);
  for (std::size_t size : {1000u, 4000u, 13000u, 124236u}) {
    const std::size_t seams = size >= 98304 ? 1 : 0;
    for (const Bytes& raster :
         {runs(rng, size), labelRaster(rng, size), glyphRows(glyphs, size), ditheredRings(size),
          Bytes(size, 0xFF)}) {
      EXPECT_LE(lzss::compress(raster).size(), lzss::encode(raster).size() + 3 * seams) << size;
    }
  }
}

// The search is not exhaustive: on some dithered photos the classic finds
// a few more bytes to copy, never 0.4 % of its stream.
TEST(LzssCompress, CloseToTheClassicOnEveryDithering) {
  for (Dither mode : {Dither::FloydSteinberg, Dither::Atkinson, Dither::Ordered4x4,
                      Dither::Ordered8x8, Dither::EdgeAware}) {
    for (double scale : {18.0, 60.0}) {
      for (std::size_t size : {10000u, 30000u}) {
        const Bytes raster = ditheredRings(size, mode, scale);
        EXPECT_LE(lzss::compress(raster).size() * 1000, lzss::encode(raster).size() * 1004)
            << static_cast<int>(mode) << " " << scale << " " << size;
      }
    }
  }
}

// Each thread keeps its own tables from input to input; the parts of a
// large input go to the helpers or, while another thread has them, all to
// the calling thread: the stream is the same.
TEST(LzssCompress, ThreadsCompressAtOnceAsOneAlone) {
  std::mt19937 rng(7);
  const std::vector<Bytes> inputs = {labelRaster(rng, 300000), glyphRows(rng, 20000),
                                     randomBytes(rng, 5000), runs(rng, 200000)};
  std::vector<Bytes> alone;
  for (const Bytes& input : inputs) alone.push_back(lzss::compress(input));
  std::vector<std::thread> threads;
  std::atomic<int> differing{0};
  for (std::size_t t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (std::size_t round = 0; round < 8; ++round) {
        const std::size_t which = (t + round) % inputs.size();
        if (lzss::compress(inputs[which]) != alone[which]) ++differing;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(differing, 0);
}

// A process forked from one whose helpers are started has only the thread
// that forked: it compresses on that thread alone.
TEST(LzssCompress, AForkedProcessCompressesWithoutItsParentsHelpers) {
  std::mt19937 rng(11);
  const Bytes input = labelRaster(rng, 300000);
  const Bytes stream = lzss::compress(input);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(lzss::compress(input) == stream ? 0 : 1);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(RunSideBySide, RunsEveryPartOnceAndThrowsWhatAPartThrew) {
  std::vector<std::atomic<int>> runs(64);
  lzss::runSideBySide(runs.size(), [&](std::size_t k) { ++runs[k]; });
  EXPECT_TRUE(std::all_of(runs.begin(), runs.end(), [](const auto& n) { return n == 1; }));
  EXPECT_THROW(lzss::runSideBySide(16,
                                   [](std::size_t k) {
                                     if (k == 3) throw std::runtime_error("part 3");
                                   }),
               std::runtime_error);
}
