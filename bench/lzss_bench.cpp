// lzss::compress side by side with the classic encoder (lzss::encode) on
// the same rasters: a 4 x 6 inch shipping label of text and barcodes, the
// same label size holding a dithered photo, a blank label, and random
// bytes, at several sizes. Each reports MB/s and the stream's bytes
// (out_bytes); the run ends with a table of the two side by side, its MB/s
// from wall time (the medians when repeated). From 96 KiB on, compress
// cuts its input in parts that the cores it may use compress side by side;
// under `taskset -c 1` it works on one core.
//
//   build/default/bench/lzss_bench --benchmark_repetitions=3
//   taskset -c 1 build/default/bench/lzss_bench --benchmark_repetitions=3

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <orvante/label.hpp>
#include <orvante/lzss.hpp>

#include "rings_photo.hpp"

namespace {

using orvante::Bytes;

// A 1-bit raster, a 1 bit a light dot.
struct Raster {
  int bytesPerRow = 0, rows = 0;
  Bytes bytes;
};

// The raster of the one bitmap packet a label holds: a 16-byte header with
// bytes per row at 6 and rows at 8, the stream, a line end.
Raster packetRaster(const Bytes& label) {
  auto field = [&](std::size_t at) { return label[at] | label[at + 1] << 8; };
  Raster raster{field(6), field(8), {}};
  raster.bytes = orvante::lzss::decode(orvante::ByteView(label).subspan(16, label.size() - 18),
                                       std::size_t(raster.bytesPerRow) * raster.rows);
  return raster;
}

// Darkens on `page` the dark dots of `piece`, its top left at byte column
// `x` and row `y`.
void paste(Raster& page, const Raster& piece, int x, int y) {
  for (int row = 0; row < piece.rows && y + row < page.rows; ++row) {
    for (int column = 0; column < piece.bytesPerRow && x + column < page.bytesPerRow; ++column) {
      page.bytes[std::size_t(y + row) * page.bytesPerRow + x + column] &=
          piece.bytes[std::size_t(row) * piece.bytesPerRow + column];
    }
  }
}

void darken(Raster& page, int left, int top, int width, int height) {
  for (int row = top; row < top + height && row < page.rows; ++row) {
    for (int dot = left; dot < left + width && dot < page.bytesPerRow * 8; ++dot) {
      page.bytes[std::size_t(row) * page.bytesPerRow + dot / 8] &=
          static_cast<std::uint8_t>(~(0x80 >> (dot % 8)));
    }
  }
}

// Bars and spaces of one to four modules, as a linear barcode's.
void barcode(Raster& page, int left, int top, int module, int height, int bars, unsigned seed) {
  std::mt19937 rng(seed);
  int x = left;
  for (int bar = 0; bar < bars; ++bar) {
    const int dark = module * int(1 + rng() % 4), light = module * int(1 + rng() % 4);
    darken(page, x, top, dark, height);
    x += dark + light;
  }
}

// A shipping label at `dpi`: heading, address, rules, two barcodes, small
// print and a zone, the text drawn by the library in DejaVu Sans.
Bytes shippingLabel(int dpi) {
  auto dots = [&](double at203) { return int(std::lround(at203 * dpi / 203.0)); };
  Raster page{(4 * dpi + 7) / 8, 6 * dpi, {}};
  page.bytes.assign(std::size_t(page.bytesPerRow) * page.rows, 0xFF);
  auto text = [&](int x, int y, int size, const std::string& line, bool bold = false) {
    orvante::Label label(dpi);
    label.renderedText(0, 0, "DejaVu Sans", dots(size), line, {bold});
    paste(page, packetRaster(label.bytes()), dots(x) / 8, dots(y));
  };
  text(24, 20, 44, "SHIP TO: ORVANTE LABS", true);
  darken(page, dots(16), dots(80), dots(780), dots(4));
  const char* address[] = {"Attn: Receiving Dock 4", "1234 Market Street, Suite 500",
                           "Springfield, OR 98765", "United States of America",
                           "Phone +1 555 0100 extension 42"};
  for (int line = 0; line < 5; ++line) text(24, 100 + line * 40, 28, address[line]);
  darken(page, dots(16), dots(320), dots(780), dots(4));
  text(24, 340, 32, "TRACKING 1Z 999 AA1 01 2345 6784", true);
  barcode(page, dots(40), dots(390), dots(3), dots(220), 48, 7);
  darken(page, dots(16), dots(640), dots(780), dots(4));
  text(24, 660, 28, "ORDER 000421  PARCEL 7 OF 9  WEIGHT 2.4 KG");
  barcode(page, dots(40), dots(710), dots(2), dots(120), 60, 11);
  darken(page, dots(16), dots(860), dots(780), dots(4));
  for (int line = 0; line < 6; ++line) {
    text(24, 880 + line * 30, 20,
         "Handle with care. Keep dry. Return address on the back. " + std::to_string(line));
  }
  darken(page, dots(16), dots(1080), dots(780), dots(4));
  text(24, 1100, 56, "ZONE C-07", true);
  return std::move(page.bytes);
}

// A grey photo, rings and a gradient, dithered with Floyd and Steinberg
// over the whole label: the raster the label's BITMAP command carries.
Bytes ditheredPhoto(int dpi) {
  const int width = 4 * dpi, height = 6 * dpi;
  orvante::Label label(dpi);
  label.bitmap(0, 0, orvante::testing::ringsPhoto(width, height),
               {orvante::Dither::FloydSteinberg});
  const Bytes& command = label.bytes();  // "BITMAP ...," raster "\r\n"
  const std::size_t size = std::size_t((width + 7) / 8) * height;
  return Bytes(command.end() - 2 - static_cast<long>(size), command.end() - 2);
}

// Dense small print, as a parts list in a tiny font: glyph cells of
// 4 x 3-dot blocks, eight block rows to a text line, so every dot row is
// drawn three times and a row's bytes come from four values.
Bytes densePrint(int dpi) {
  const int bytesPerRow = (4 * dpi + 7) / 8, rows = 6 * dpi;
  Bytes bytes(std::size_t(bytesPerRow) * rows, 0xFF);
  std::mt19937 rng(46);
  const std::uint8_t blocks[] = {0xFF, 0x0F, 0xF0, 0x00};
  for (int row = 40; row + 3 <= rows - 40; row += 3) {
    if ((row - 40) % 27 == 24) continue;  // the space between text lines
    for (int column = 2; column < bytesPerRow - 2; ++column) {
      const std::uint8_t block = blocks[rng() % 4];
      for (int copy = 0; copy < 3; ++copy) bytes[std::size_t(row + copy) * bytesPerRow + column] = block;
    }
  }
  return bytes;
}

Bytes blankLabel(int dpi) {
  return Bytes(std::size_t((4 * dpi + 7) / 8) * 6 * dpi, 0xFF);
}

Bytes randomBytes(std::size_t size) {
  Bytes bytes(size);
  std::mt19937 rng(5);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(rng());
  return bytes;
}

void encodeWith(benchmark::State& state, Bytes (*encoder)(orvante::ByteView),
                const Bytes& input) {
  std::size_t out = 0;
  for (auto _ : state) {
    const Bytes stream = encoder(input);
    out = stream.size();
    benchmark::DoNotOptimize(stream.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(input.size()));
  state.counters["in_bytes"] = static_cast<double>(input.size());
  state.counters["out_bytes"] = static_cast<double>(out);
}

// Prints as usual and keeps each run's MB/s and bytes (the medians when
// repeated) for the table at the end.
class SideBySide : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.error_occurred || (run.run_type == Run::RT_Aggregate && !median)) continue;
      const std::string name = run.run_name.function_name;  // input/encoder
      const auto slash = name.rfind('/');
      auto& figures = table_[name.substr(0, slash)][name.substr(slash + 1)];
      if (figures.median && !median) continue;
      figures = {run.counters.at("bytes_per_second").value / 1e6,
                 run.counters.at("out_bytes").value, median};
    }
  }
  void printTable() const {
    std::printf("\n%-16s %12s %13s %7s %12s %12s %9s\n", "input", "classic MB/s", "compress MB/s",
                "speed", "classic B", "compress B", "fewer B");
    for (const auto& [input, figures] : table_) {
      const auto classic = figures.find("classic"), fast = figures.find("compress");
      if (classic == figures.end() || fast == figures.end()) continue;
      std::printf("%-16s %12.1f %13.1f %6.1fx %12.0f %12.0f %9.0f\n", input.c_str(),
                  classic->second.megabytes, fast->second.megabytes,
                  fast->second.megabytes / classic->second.megabytes, classic->second.bytes,
                  fast->second.bytes, classic->second.bytes - fast->second.bytes);
    }
  }

 private:
  struct Figures {
    double megabytes = 0, bytes = 0;
    bool median = false;  // of repetitions, which no single run replaces
  };
  std::map<std::string, std::map<std::string, Figures>> table_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  // Made once, before anything is timed; each input runs through both
  // encoders one after the other.
  std::vector<std::pair<std::string, std::function<Bytes()>>> makers;
  for (int dpi : {203, 300, 600}) {
    makers.push_back({"label_" + std::to_string(dpi) + "dpi", [dpi] { return shippingLabel(dpi); }});
  }
  for (int dpi : {203, 300}) {
    makers.push_back({"photo_" + std::to_string(dpi) + "dpi", [dpi] { return ditheredPhoto(dpi); }});
    makers.push_back({"blank_" + std::to_string(dpi) + "dpi", [dpi] { return blankLabel(dpi); }});
    makers.push_back({"print_" + std::to_string(dpi) + "dpi", [dpi] { return densePrint(dpi); }});
  }
  for (std::size_t kib : {16, 128, 1024}) {
    makers.push_back({"random_" + std::to_string(kib) + "KiB", [kib] { return randomBytes(kib << 10); }});
  }
  static std::vector<Bytes> inputs;
  inputs.reserve(makers.size());
  for (const auto& [name, make] : makers) {
    const Bytes& input = inputs.emplace_back(make());
    benchmark::RegisterBenchmark((name + "/classic").c_str(), encodeWith, orvante::lzss::encode,
                                 std::cref(input))
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark((name + "/compress").c_str(), encodeWith,
                                 orvante::lzss::compress, std::cref(input))
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
  }
  SideBySide reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printTable();
  benchmark::Shutdown();
  return 0;
}
