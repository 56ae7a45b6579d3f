// The same label through both doors to a printer on the loopback
// interface: the published session (made, opened, driven, closed, with its
// published pauses) against orvante::Label and orvante::Printer (opened,
// printed, closed); and a status query through each.
//
//   build/default/bench/doors_bench
//
// The label: setup, two text lines, a barcode and a 4 x 6 inch image at
// 203 dpi (812 x 1218 dots).

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>

#include <orvante/orvante.hpp>

#include <orvante/testing/loopback_printer.hpp>

#include "quiet_stdout.hpp"

namespace {

// A grey photo-like picture: rings and a gradient.
orvante::Image photo() {
  const int width = 812, height = 1218;
  orvante::Bytes rgba(static_cast<std::size_t>(width) * height * 4, 255);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double ring = std::sin(std::hypot(x - 400, y - 600) / 18.0);
      const auto grey = static_cast<std::uint8_t>(127 + 100 * ring * (x / double(width)));
      auto* p = &rgba[(static_cast<std::size_t>(y) * width + x) * 4];
      p[0] = p[1] = p[2] = grey;
    }
  }
  return orvante::Image(width, height, std::move(rgba));
}

const orvante::Image& picture() {
  static const orvante::Image image = photo();
  return image;
}

orvante::testing::LoopbackPrinter& printer() {
  // Answers the status query: ready.
  static orvante::testing::LoopbackPrinter peer(
      [](orvante::testing::PrinterPeer& peer, orvante::ByteView, orvante::ByteView all) {
        if (all.size() >= 3 && all[all.size() - 3] == 0x1B && all[all.size() - 2] == '!' &&
            all.back() == '?') {
          peer.send(orvante::Bytes{0x00});
        }
      });
  return peer;
}

void publishedDoor(benchmark::State& state) {
  orvante::setLogSink([](std::string_view) {});
  QuietStdout quiet;
  for (auto _ : state) {
    ORVANTESDK session;
    session.openport_ethernet("127.0.0.1", printer().port());
    session.setup(101.6, 152.4, 4, 8, 0, 3, 0);
    session.clearbuffer();
    session.printerfont(40, 40, "3", 0, 1, 1, "ORVANTE WAREHOUSE");
    session.printerfont(40, 90, "2", 0, 1, 1, "Aisle 7, shelf C");
    session.barcode(40, 140, "128", 100, 1, 0, 2, 2, "SHIP-000421");
    session.SendPic(picture(), 0, 0);
    session.closeport();
  }
}
BENCHMARK(publishedDoor)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void secondDoor(benchmark::State& state) {
  const std::string uri = "tcp://127.0.0.1:" + std::to_string(printer().port());
  for (auto _ : state) {
    auto connection = orvante::Printer::open(uri);
    orvante::Label label;
    label.size(101.6, 152.4).speed(4).density(8).gap(3).clear();
    label.text(40, 40, "3", "ORVANTE WAREHOUSE").text(40, 90, "2", "Aisle 7, shelf C");
    label.barcode(40, 140, "128", "SHIP-000421", 100);
    label.image(0, 0, picture()).print();
    connection.print(label);
    connection.close();
  }
}
BENCHMARK(secondDoor)->Unit(benchmark::kMillisecond)->UseRealTime();

// Where the second door's time goes: the label's bytes alone.
void secondDoorLabelOnly(benchmark::State& state) {
  for (auto _ : state) {
    orvante::Label label;
    label.image(0, 0, picture(), {static_cast<orvante::Dither>(state.range(0))}).print();
    benchmark::DoNotOptimize(label.bytes().data());
  }
}
BENCHMARK(secondDoorLabelOnly)->DenseRange(0, 5)->Unit(benchmark::kMillisecond);

void statusPublishedDoor(benchmark::State& state) {
  orvante::setLogSink([](std::string_view) {});
  ORVANTESDK session;
  session.openport_ethernet("127.0.0.1", printer().port());
  for (auto _ : state) benchmark::DoNotOptimize(session.printerstatus());
  session.closeport();
}
BENCHMARK(statusPublishedDoor)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void statusSecondDoor(benchmark::State& state) {
  auto connection =
      orvante::Printer::open("tcp://127.0.0.1:" + std::to_string(printer().port()));
  for (auto _ : state) benchmark::DoNotOptimize(connection.status());
}
BENCHMARK(statusSecondDoor)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
