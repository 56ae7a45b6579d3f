// Templates and batches: records a second filled into labels (the bytes,
// on one core) for the README's template with printer fonts, barcode and
// QR code only, with its text in an installed font, and with its image
// too; and a batch of 10,000 records to the virtual printer over the
// loopback: sent without confirmation (one status query at the end),
// each label confirmed by its status round trip (Delivery), and the whole
// batch runner with its SQLite journal.
//
//   build/default/bench/batch_bench
//   ORVANTE_BATCH_RECORDS=2000 build/default/bench/batch_bench --benchmark_filter=Batch

#include <benchmark/benchmark.h>
#include <cairo.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <orvante/batch.hpp>
#include <orvante/printer.hpp>

extern char** environ;

namespace {

using namespace orvante;
namespace fs = std::filesystem;

const std::string kCodes = R"(
  {"type": "text", "x": 20, "y": 20, "font": "3", "text": "${name}"},
  {"type": "barcode", "x": 20, "y": 110, "symbology": "128", "height": 80, "code": "${sku}"},
  {"type": "qr", "x": 560, "y": 20, "cell": 6, "data": "https://example.com/p/${sku}"},
  {"type": "box", "x": 5, "y": 5, "x2": 795, "y2": 475, "thickness": 3},
  {"type": "text", "x": 20, "y": 400, "font": "2", "text": "No. ${n:%06d}"})";
const std::string kInstalledFont = R"(,
  {"type": "text", "x": 20, "y": 60, "family": "DejaVu Sans", "dots": 28, "text": "${city} ${zip}"})";
const std::string kImage = R"(,
  {"type": "image", "x": 600, "y": 300, "path": "logo.png", "dither": "atkinson"})";

fs::path scratch() {
  static const fs::path folder = [] {
    char name[] = "/tmp/orvante-batch-bench-XXXXXX";
    return fs::path(mkdtemp(name));
  }();
  return folder;
}

// A 160 x 120 logo of greys for the dithering.
void writeLogo(const fs::path& path) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 160, 120);
  cairo_t* cairo = cairo_create(surface);
  cairo_pattern_t* ramp = cairo_pattern_create_linear(0, 0, 160, 0);
  cairo_pattern_add_color_stop_rgb(ramp, 0, 0, 0, 0);
  cairo_pattern_add_color_stop_rgb(ramp, 1, 1, 1, 1);
  cairo_set_source(cairo, ramp);
  cairo_paint(cairo);
  cairo_pattern_destroy(ramp);
  cairo_destroy(cairo);
  cairo_surface_write_to_png(surface, path.c_str());
  cairo_surface_destroy(surface);
}

Template layout(const std::string& elements) {
  writeLogo(scratch() / "logo.png");
  return Template::parse(R"({"size": [100, 60], "gap": 2, "dpi": 203, "copies": 1, "elements": [)" +
                             elements + "]}",
                         scratch());
}

std::vector<Record> records(std::size_t count) {
  std::vector<Record> made;
  made.reserve(count);
  for (std::size_t n = 1; n <= count; ++n) {
    Record& record = made.emplace_back(n, n + 1);
    record.set("name", "Customer " + std::to_string(n));
    record.set("city", "Berlin");
    record.set("zip", std::to_string(10000 + n % 90000));
    record.set("sku", "SKU-" + std::to_string(100000 + n));
  }
  return made;
}

void fill(benchmark::State& state, const std::string& elements) {
  const Template labels = layout(elements);
  const auto data = records(1000);
  std::size_t bytes = 0, at = 0;
  for (auto _ : state) {
    const Label label = labels.fill(data[at++ % data.size()]);
    bytes += label.bytes().size();
    benchmark::DoNotOptimize(label.bytes().data());
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

void FillPrinterFontsBarcodeAndQr(benchmark::State& state) { fill(state, kCodes); }
BENCHMARK(FillPrinterFontsBarcodeAndQr);

void FillWithInstalledFontText(benchmark::State& state) { fill(state, kCodes + kInstalledFont); }
BENCHMARK(FillWithInstalledFontText);

void FillWithInstalledFontTextAndImage(benchmark::State& state) {
  fill(state, kCodes + kInstalledFont + kImage);
}
BENCHMARK(FillWithInstalledFontTextAndImage);

// orvante-vprinter on a free port of the loopback, its labels in a scratch folder.
class VirtualPrinter {
 public:
  VirtualPrinter() {
    folder_ = scratch() / ("printer-" + std::to_string(++count_));
    fs::create_directories(folder_);
    std::vector<std::string> args{VPRINTER_EXECUTABLE, "--listen", "127.0.0.1:0", "--port-file",
                                  (folder_ / "port").string(), "--out", (folder_ / "labels").string()};
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    while (!fs::exists(folder_ / "port")) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::ifstream(folder_ / "port") >> port_;
  }
  ~VirtualPrinter() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    fs::remove_all(folder_);
  }
  std::string uri() const { return "tcp://127.0.0.1:" + std::to_string(port_); }

 private:
  static inline int count_ = 0;
  fs::path folder_;
  pid_t pid_ = -1;
  int port_ = 0;
};

std::size_t batchSize() {
  const char* given = std::getenv("ORVANTE_BATCH_RECORDS");
  return given ? std::stoul(given) : 10000;
}

// 0: every label sent, one status query at the end; 1: each label
// confirmed through a Delivery; 2: the batch runner with its journal.
void BatchToVirtualPrinter(benchmark::State& state) {
  const Template labels = layout(kCodes);
  const std::size_t count = batchSize();
  for (auto _ : state) {
    state.PauseTiming();
    VirtualPrinter printer;
    Batch batch(labels, records(count));
    const fs::path journal = scratch() / "journal";
    fs::remove(journal);
    JobStore store(journal);
    const auto job = batch.newJob(store, printer.uri(), "bench");
    state.ResumeTiming();
    switch (state.range(0)) {
      case 0: {
        auto connection = Printer::open(printer.uri());
        for (std::size_t number : batch.numbers()) connection.print(batch.label(number));
        benchmark::DoNotOptimize(connection.status(std::chrono::minutes(10)));
        break;
      }
      case 1: {
        Delivery delivery(printer.uri());
        for (std::size_t number : batch.numbers()) delivery.print(batch.label(number));
        break;
      }
      default: {
        Delivery delivery(printer.uri());
        batch.print(delivery, store, job);
        break;
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
  state.SetLabel(state.range(0) == 0   ? "sent, one status query at the end"
                 : state.range(0) == 1 ? "each label confirmed"
                                       : "batch runner, each label confirmed and journaled");
}
BENCHMARK(BatchToVirtualPrinter)
    ->DenseRange(0, 2)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
