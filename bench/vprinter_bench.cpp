// The virtual printer: rendering a typical 4 x 6 inch label at 203 dpi
// and writing its PNG, and the parse rate of a stream of compressed
// bitmap packets.
//
//   build/default/bench/vprinter_bench

#include <benchmark/benchmark.h>

#include <string>

#include <orvante/lzss.hpp>
#include <orvante/vprinter/engine.hpp>

namespace {

using orvante::Bytes;
using namespace orvante::vprinter;

Bytes packet(int x, int y, int bytesPerRow, int rows, const Bytes& raster) {
  Bytes out{'!', 'S'};
  for (int field : {x, y, bytesPerRow, rows}) {
    out.push_back(static_cast<std::uint8_t>(field & 0xFF));
    out.push_back(static_cast<std::uint8_t>(field >> 8));
  }
  out.resize(16, 0);
  const Bytes stream = orvante::lzss::encode(raster);
  out.insert(out.end(), stream.begin(), stream.end());
  return out;
}

// A logo-like raster: a ring and stripes on white.
Bytes logo(int bytesPerRow, int rows) {
  Bytes bytes(static_cast<std::size_t>(bytesPerRow) * rows, 0xFF);
  const int width = bytesPerRow * 8;
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < width; ++x) {
      const int dx = x - width / 2, dy = y - rows / 2;
      const int r2 = dx * dx + dy * dy;
      const bool ink = (r2 < rows * rows / 4 && r2 > rows * rows / 9) || (y % 16 < 3 && x % 5 < 2);
      if (ink) bytes[y * bytesPerRow + x / 8] &= static_cast<std::uint8_t>(~(0x80 >> (x % 8)));
    }
  }
  return bytes;
}

Bytes typicalLabel() {
  std::string text =
      "SIZE 4,6\r\nGAP 3 mm,0 mm\r\nCLS\r\n"
      "TEXT 30,30,\"5\",0,1,1,\"ORVANTE LOGISTICS\"\r\n"
      "TEXT 30,100,\"3\",0,1,1,\"Ship to: 221B Baker Street\"\r\n"
      "TEXT 30,130,\"3\",0,1,1,\"London NW1 6XE\"\r\n"
      "TEXT 30,160,\"2\",0,1,1,\"Order 000421 - 3 parcels - 12.4 kg\"\r\n"
      "TEXT 30,200,\"0\",0,14,14,\"Priority\"\r\n"
      "BOX 20,20,792,1198,4\r\n"
      "BAR 20,260,772,4\r\n"
      "BARCODE 60,300,\"128\",160,1,0,3,3,\"SHIP-000421-0003\"\r\n"
      "BARCODE 60,540,\"EAN13\",120,1,0,3,3,\"978020137962\"\r\n";
  Bytes bytes(text.begin(), text.end());
  const Bytes image = packet(420, 720, 40, 320, logo(40, 320));
  bytes.insert(bytes.end(), image.begin(), image.end());
  const std::string print = "\r\nPRINT 1\r\n";
  bytes.insert(bytes.end(), print.begin(), print.end());
  return bytes;
}

void RenderTypicalLabel(benchmark::State& state) {
  Engine engine;
  const Bytes label = typicalLabel();
  for (auto _ : state) {
    engine.feed(1, label);
    auto printed = engine.takePrinted();
    benchmark::DoNotOptimize(printed.front().rows().data());
  }
}
BENCHMARK(RenderTypicalLabel)->Unit(benchmark::kMillisecond);

void WriteLabelPng(benchmark::State& state) {
  Engine engine;
  engine.feed(1, typicalLabel());
  const PrintedLabel label = engine.takePrinted().front();
  std::size_t size = 0;
  for (auto _ : state) {
    const Bytes png = label.png();
    size = png.size();
    benchmark::DoNotOptimize(png.data());
  }
  state.counters["png_bytes"] = static_cast<double>(size);
}
BENCHMARK(WriteLabelPng)->Unit(benchmark::kMillisecond);

void RenderAndWriteTypicalLabel(benchmark::State& state) {
  Engine engine;
  const Bytes label = typicalLabel();
  for (auto _ : state) {
    engine.feed(1, label);
    const Bytes png = engine.takePrinted().front().png();
    benchmark::DoNotOptimize(png.data());
  }
}
BENCHMARK(RenderAndWriteTypicalLabel)->Unit(benchmark::kMillisecond);

// Packets of a 320 x 320 dot image, fed in 64 KiB reads as a socket
// delivers them: framing, stream end finding, decoding and drawing.
void ParseCompressedPackets(benchmark::State& state) {
  Engine engine;
  Bytes stream;
  const Bytes one = packet(16, 16, 40, 320, logo(40, 320));
  for (int i = 0; i < 64; ++i) stream.insert(stream.end(), one.begin(), one.end());
  constexpr std::size_t kRead = 64 * 1024;
  for (auto _ : state) {
    for (std::size_t at = 0; at < stream.size(); at += kRead) {
      engine.feed(1, orvante::ByteView(stream).subspan(at, std::min(kRead, stream.size() - at)));
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stream.size()));
  state.counters["packet_bytes"] = static_cast<double>(one.size());
}
BENCHMARK(ParseCompressedPackets)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
