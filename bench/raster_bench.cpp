// The encoder's two doors on label-like and random data, threshold-and-pack
// of a label image, and SendPic end to end to a loopback printer.
//
//   build/default/bench/raster_bench --benchmark_filter=...

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <random>

#include <orvante/orvante.hpp>
#include <orvante/testing/loopback_printer.hpp>

#include "quiet_stdout.hpp"

namespace {

using orvante::Bytes;

// A 4 x 6 inch label at 300 dpi, as a raster: bars, text-like strokes,
// white space.
Bytes labelRaster(std::size_t size) {
  Bytes bytes(size, 0xFF);
  std::mt19937 rng(3);
  const std::size_t row = 150;
  for (std::size_t i = 0; i < size; ++i) {
    const std::size_t line = i / row, column = i % row;
    if (line % 60 < 20 && column > 10 && column < 140 && (column * 7 + line / 3) % 9 < 3)
      bytes[i] = 0x00;
    if (line % 300 > 200 && line % 300 < 260 && column % 3 == 0)
      bytes[i] = static_cast<std::uint8_t>(rng());
  }
  return bytes;
}

Bytes randomBytes(std::size_t size) {
  Bytes bytes(size);
  std::mt19937 rng(5);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(rng());
  return bytes;
}

// A label image: black text-like blocks on white, some grey.
orvante::Image labelImage(int width, int height) {
  Bytes rgba(static_cast<std::size_t>(width) * height * 4, 255);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* p = &rgba[(static_cast<std::size_t>(y) * width + x) * 4];
      const bool ink = (y % 80 < 30 && (x * 5 + y) % 11 < 4) ||
                       (y > height / 2 && y < height / 2 + 200 && x % 7 < 3);
      const std::uint8_t tone = ink ? 0 : (x + y) % 200 == 0 ? 128 : 255;
      p[0] = p[1] = p[2] = tone;
    }
  }
  return orvante::Image(width, height, std::move(rgba));
}

class NoPauses final : public orvante::Clock {
 public:
  void sleepFor(double) override {}
};

double maxRssMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}

void encodeCore(benchmark::State& state, Bytes (*make)(std::size_t)) {
  const Bytes input = make(static_cast<std::size_t>(state.range(0)));
  std::size_t out = 0;
  for (auto _ : state) {
    auto encoded = orvante::lzss::encode(input);
    out = encoded.size();
    benchmark::DoNotOptimize(encoded.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(input.size()));
  state.SetComplexityN(state.range(0));
  state.counters["ratio"] = static_cast<double>(out) / input.size();
}

void encodeThroughC(benchmark::State& state, Bytes (*make)(std::size_t)) {
  const Bytes input = make(static_cast<std::size_t>(state.range(0)));
  QuietStdout quiet;
  for (auto _ : state) {
    benchmark::DoNotOptimize(LZSSEncoding(input.data(), static_cast<std::int32_t>(input.size())));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(input.size()));
  state.SetComplexityN(static_cast<std::int64_t>(GetEncodeDataSize()));
  state.counters["out_bytes"] = static_cast<double>(GetEncodeDataSize());
}

void SendPicOfA4x6Label(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  orvante::setLogSink([](std::string_view) {});
  orvante::testing::LoopbackPrinter printer;
  orvante::Platform platform = orvante::Platform::system();
  platform.clock = std::make_shared<NoPauses>();
  ORVANTESDK session(platform);
  session.openport_ethernet_delay("127.0.0.1", printer.port(), 0);
  while (session.stream_status() != 2) std::this_thread::yield();
  // The benchmark runs this function more than once; growth counts from the
  // first run.
  static const double before = maxRssMegabytes();
  const orvante::Image image = labelImage(width, height);
  QuietStdout quiet;
  for (auto _ : state) session.SendPic(image, 0, 0);
  state.counters["rgba_MB"] = image.rgba().size() / 1048576.0;
  state.counters["peak_growth_MB"] = maxRssMegabytes() - before;
}

// Thresholded at 128 and packed, uncompressed: the label's BITMAP command.
void ThresholdAndPack(benchmark::State& state) {
  const orvante::Image image = labelImage(812, 1218);
  for (auto _ : state) {
    orvante::Label label;
    label.bitmap(0, 0, image);
    benchmark::DoNotOptimize(label.bytes().data());
  }
  state.SetItemsProcessed(state.iterations() * 812 * 1218);
}

}  // namespace

// First, so its memory growth is its own.
BENCHMARK(SendPicOfA4x6Label)->Args({1200, 1800})->Args({812, 1218})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(encodeCore, label, labelRaster)
    ->RangeMultiplier(4)
    ->Range(16 << 10, 1 << 20)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(encodeCore, random, randomBytes)
    ->RangeMultiplier(4)
    ->Range(16 << 10, 1 << 20)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(encodeThroughC, label, labelRaster)
    ->RangeMultiplier(4)
    ->Range(16 << 10, 1 << 20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(encodeThroughC, random, randomBytes)
    ->RangeMultiplier(2)
    ->Range(16 << 10, 128 << 10)
    ->Complexity(benchmark::oNSquared)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ThresholdAndPack)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
