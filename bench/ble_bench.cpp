// One 4 x 6 inch label through both doors over BLE, to the virtual
// printer's engine behind the stand-in BlueZ on a private bus, with a
// simulated connection interval: each acknowledged write is answered one
// interval after the one before.
//
//   build/default/bench/ble_bench                     # 15 ms interval
//   ORVANTE_BLE_INTERVAL_US=7500 build/default/bench/ble_bench
//
// The published door: the session made (its 1 s), a 1 s scan, openport_ble,
// the label's commands and SendPic in 20-byte writes with response, sent
// without waiting for their answers as published, closeport. The second
// door: Printer::open("ble://..."), print, close, in writes of MTU - 3 bytes
// (MTU 247), each waiting for its answer. Both end when the engine has
// taken the label's last byte. "transfer_s" is the time from the first
// command to that moment, "arrived_bytes" the label's bytes that reached
// the printer, "packet_ms" the time per write; the engine renders each label
// as it comes in.
//
// Measured (2 cores, 15 ms): published door 20.7 s (18.7 s transfer, all
// 24.9 KB arrived), second door 1.6 s: about 13 times faster.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <orvante/orvante.hpp>

#include "bluez_virtual_printer.hpp"
#include "testing/bluez/private_bus.hpp"

#include "quiet_stdout.hpp"

namespace {

using Clock = std::chrono::steady_clock;
const std::string kAddress = "00:11:62:00:0B:E7";

std::chrono::microseconds interval() {
  const char* text = std::getenv("ORVANTE_BLE_INTERVAL_US");
  return std::chrono::microseconds(text ? std::atol(text) : 15000);
}

// A picture 812 dots wide (4 inches at 203 dpi): `lines` lines of
// glyph-like blocks, a frame and, on a 6 inch picture (1218 dots), a
// barcode. 6 inches with 46 lines compress to about 25 KB; 80 dots with one
// line, to about 1.6 KB.
orvante::Image picture(int lines, int height) {
  const int width = 812;
  orvante::Bytes rgba(static_cast<std::size_t>(width) * height * 4, 255);
  auto ink = [&](int x, int y) {
    auto* p = &rgba[(static_cast<std::size_t>(y) * width + x) * 4];
    p[0] = p[1] = p[2] = 0;
  };
  std::uint32_t seed = 2024;
  auto next = [&] { return seed = seed * 1664525u + 1013904223u; };
  for (int line = 0; line < lines; ++line) {
    const int top = 40 + line * 24;
    for (int cell = 0; cell < 48; ++cell) {
      const std::uint32_t glyph = next();
      for (int bit = 0; bit < 32; ++bit) {
        if (!(glyph >> bit & 1)) continue;
        const int x0 = 20 + cell * 16 + (bit % 4) * 4, y0 = top + (bit / 4) * 3;
        for (int y = y0; y < y0 + 3; ++y)
          for (int x = x0; x < x0 + 4; ++x) ink(x, y);
      }
    }
  }
  for (int bar = 0; height >= 1218 && bar < 90; ++bar) {
    const int x0 = 40 + bar * 8, thick = 2 + static_cast<int>(next() % 5);
    for (int y = 1150; y < 1205; ++y)
      for (int x = x0; x < x0 + thick; ++x) ink(x, y);
  }
  for (int x = 0; x < width; ++x) ink(x, 0), ink(x, height - 1);
  for (int y = 0; y < height; ++y) ink(0, y), ink(width - 1, y);
  return orvante::Image(width, height, std::move(rgba));
}

const orvante::Image& labelPicture() {
  static const orvante::Image image = picture(46, 1218);
  return image;
}

const orvante::Image& smallLabelPicture() {
  static const orvante::Image image = picture(1, 80);
  return image;
}

// A private bus taken for the system bus, BlueZ on it with one printer,
// and the engine behind the printer.
struct Air {
  Air() {
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
    path = bluez.addPrinter(kAddress, "BENCH PRINTER");
    bluez.setConnectionInterval(interval());
  }
  ~Air() { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

  // Until the engine has taken `count` more bytes than at `from`.
  bool waitForBytes(std::size_t from, std::size_t count) {
    const auto deadline = Clock::now() + std::chrono::minutes(5);
    while (printer.bytesFed() < from + count) {
      if (Clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }

  orvante::testing::PrivateBus bus;
  orvante::testing::FakeBluez bluez{bus.address()};
  orvante::testing::BluezVirtualPrinter printer{bluez};
  std::string path;
};

orvante::Label secondDoorLabel() {
  orvante::Label label;
  label.size(101.6, 152.4).speed(4).density(8).gap(3).clear();
  label.text(40, 40, "3", "ORVANTE WAREHOUSE").text(40, 90, "2", "Aisle 7, shelf C");
  label.barcode(40, 140, "128", "SHIP-000421", 100);
  label.image(0, 0, labelPicture()).print();
  return label;
}

// The bytes of the writes that reached the printer, once no more come.
std::size_t settledWrites(Air& air) {
  std::size_t seen = 0;
  for (;;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::size_t written = 0;
    for (const auto& write : air.bluez.writes(air.path)) written += write.data.size();
    if (written == seen) return written;
    seen = written;
  }
}

// One published-door label: the session made, a scan, openport_ble, the
// label's commands, closeport. Counts the bytes that reached the printer
// and the time from the first command until the engine took the last.
void publishedDoorLabel(benchmark::State& state, const orvante::Image& image) {
  // The session logs each write's answer; the refused ones are counted.
  static std::atomic<int> refused{0}, packets{0};
  static std::string reason;
  refused = 0;
  packets = 0;
  orvante::setLogSink([](std::string_view line) {
    if (line.rfind("Write Data to", 0) == 0) ++packets;
    if (line.rfind("Write Error:", 0) == 0 && refused++ == 0) reason = std::string(line);
  });
  QuietStdout quiet;
  Air air;
  double transfer = 0;
  std::size_t arrived = 0;
  for (auto _ : state) {
    ORVANTESDK session;
    std::shared_ptr<orvante::ble::Peripheral> found;
    for (const auto& peripheral : session.searchBLEDevice(1)) {
      if (peripheral->identifier() == kAddress) found = peripheral;
    }
    if (!found || session.openport_ble(found) != 1) {
      state.SkipWithError("the published door found no printer");
      break;
    }
    const auto before = air.printer.bytesFed();
    const auto start = Clock::now();
    session.setup(101.6, 152.4, 4, 8, 0, 3, 0);
    session.clearbuffer();
    session.printerfont(40, 40, "3", 0, 1, 1, "ORVANTE WAREHOUSE");
    session.printerfont(40, 90, "2", 0, 1, 1, "Aisle 7, shelf C");
    session.barcode(40, 140, "128", 100, 1, 0, 2, 2, "SHIP-000421");
    session.SendPic(image, 0, 0);
    // The session does not wait for its writes' answers: the label is
    // through once the engine has taken every byte that reached the printer.
    const std::size_t written = settledWrites(air) - arrived;
    if (!air.waitForBytes(before, written)) {
      state.SkipWithError("the engine did not take every byte");
      break;
    }
    transfer += std::chrono::duration<double>(Clock::now() - start).count();
    arrived += written;
    session.closeport();
  }
  const auto iterations = static_cast<double>(state.iterations());
  state.counters["transfer_s"] = transfer / iterations;
  state.counters["arrived_bytes"] = static_cast<double>(arrived) / iterations;
  state.counters["packet_ms"] = 1000 * transfer / (static_cast<double>(arrived) / 20.0);
  state.counters["sent_packets"] = packets / iterations;
  state.counters["refused_writes"] = refused / iterations;
  if (refused > 0) state.SetLabel(reason);
}

// The whole label: 1,249 writes of 20 bytes. The bus lets one connection
// await 128 replies; the central keeps the writes past its own limit back
// until replies come, so "refused_writes" stays 0 and every byte arrives.
void publishedDoor(benchmark::State& state) { publishedDoorLabel(state, labelPicture()); }

// A label with the same commands and a picture of one glyph line, small
// enough (under 128 writes) that every write reaches the printer: its
// "packet_ms" times the whole label's "sent_packets" is what the whole label
// would take if the bus let every write through.
void publishedDoorSmallLabel(benchmark::State& state) {
  publishedDoorLabel(state, smallLabelPicture());
}

void secondDoor(benchmark::State& state) {
  Air air;
  air.bluez.setMtu(air.path, 247);
  double transfer = 0;
  std::size_t sent = 0;
  for (auto _ : state) {
    auto printer = orvante::Printer::open("ble://" + kAddress);
    const auto before = air.printer.bytesFed();
    const auto start = Clock::now();
    const orvante::Label label = secondDoorLabel();
    printer.print(label);
    if (!air.waitForBytes(before, label.bytes().size())) {
      state.SkipWithError("the engine did not take every byte");
      break;
    }
    transfer += std::chrono::duration<double>(Clock::now() - start).count();
    sent += label.bytes().size();
    printer.close();
  }
  const auto iterations = static_cast<double>(state.iterations());
  state.counters["transfer_s"] = transfer / iterations;
  state.counters["arrived_bytes"] = static_cast<double>(sent) / iterations;
  state.counters["packet_ms"] = 1000 * transfer / (static_cast<double>(sent) / 244.0);
}

BENCHMARK(publishedDoor)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(publishedDoorSmallLabel)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(secondDoor)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
