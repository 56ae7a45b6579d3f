// Rendered text and PDF pages: a line in a system font with a warm font
// cache, the face lookup, and a 4 x 6 inch label page drawn, thresholded,
// packed and compressed, side by side with `pdftoppm -mono` on the same
// page. The run
// ends with the ratio of the two at each resolution.
//
//   build/default/bench/render_bench

#include <benchmark/benchmark.h>
#include <cairo-pdf.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

#include <orvante/label.hpp>
#include <orvante/pdf.hpp>
#include <orvante/session.hpp>


extern char** environ;

namespace {

namespace fs = std::filesystem;

// A shipping label: heavy text in two embedded faces, a barcode's bars, a
// grey logo image and rules.
void writeLabel(const std::string& path) {
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), 288, 432);
  cairo_t* c = cairo_create(surface);
  cairo_select_font_face(c, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  cairo_set_font_size(c, 22);
  cairo_move_to(c, 14, 36);
  cairo_show_text(c, "SHIP TO: ORVANTE LABS");
  cairo_select_font_face(c, "DejaVu Serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(c, 11);
  for (int line = 0; line < 12; ++line) {
    cairo_move_to(c, 14, 60 + line * 14);
    cairo_show_text(c, "1234 Market Street, Suite 500, Springfield 98765 - parcel 7 of 9");
  }
  for (int bar = 0; bar < 95; ++bar) {
    cairo_rectangle(c, 20 + bar * 2.6, 250, 0.8 + (bar * 7 % 4) * 0.45, 90);
  }
  cairo_fill(c);
  cairo_surface_t* logo = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 64, 64);
  cairo_t* l = cairo_create(logo);
  for (int i = 0; i < 64; ++i) {
    cairo_set_source_rgb(l, i / 64.0, 0.5, 1 - i / 64.0);
    cairo_rectangle(l, i, 0, 1, 64);
    cairo_fill(l);
  }
  cairo_destroy(l);
  cairo_set_source_surface(c, logo, 200, 350);
  cairo_paint(c);
  cairo_surface_destroy(logo);
  cairo_set_source_rgb(c, 0, 0, 0);
  cairo_set_line_width(c, 2);
  for (double y : {44.0, 240.0, 345.0}) {
    cairo_move_to(c, 10, y);
    cairo_line_to(c, 278, y);
  }
  cairo_stroke(c);
  cairo_show_page(c);
  cairo_destroy(c);
  cairo_surface_destroy(surface);
}

struct Scratch {
  Scratch() {
    std::string pattern = fs::temp_directory_path() / "orvante-bench-XXXXXX";
    dir = mkdtemp(pattern.data());
    label = dir / "label.pdf";
    writeLabel(label);
  }
  ~Scratch() { fs::remove_all(dir); }
  fs::path dir;
  std::string label;
};

Scratch& scratch() {
  static Scratch instance;
  return instance;
}

// A line drawn, turned, packed and compressed: the label's packet.
void BM_TextLine(benchmark::State& state) {
  const int rotation = static_cast<int>(state.range(0));
  for (auto _ : state) {
    orvante::Label label;
    label.renderedText(0, 0, "DejaVu Sans", 32, "SHIP TO: 1234 Market Street",
                       {.bold = true, .rotation = rotation});
    benchmark::DoNotOptimize(label.bytes());
  }
}
BENCHMARK(BM_TextLine)->Arg(0)->Arg(90)->Unit(benchmark::kMicrosecond);

void BM_TextLineCjkFallback(benchmark::State& state) {
  for (auto _ : state) {
    orvante::Label label;
    label.renderedText(0, 0, "DejaVu Sans", 32, "收件人 Orvante 标签 42");
    benchmark::DoNotOptimize(label.bytes());
  }
}
BENCHMARK(BM_TextLineCjkFallback)->Unit(benchmark::kMicrosecond);

// The published lookup of a face by family and style.
void BM_FaceLookup(benchmark::State& state) {
  static ORVANTESDK& session = *new ORVANTESDK;  // its published 1 s start, once
  for (auto _ : state) {
    benchmark::DoNotOptimize(session.fnFindFontWithName("DejaVu Sans", true, true));
  }
}
BENCHMARK(BM_FaceLookup)->Unit(benchmark::kMicrosecond);

// Open, draw at the label's resolution on white, threshold at 128, pack and
// compress: the label's packet of the page.
void BM_PdfPage(benchmark::State& state) {
  const auto dpi = static_cast<int>(state.range(0));
  for (auto _ : state) {
    const auto document = orvante::PdfDocument::open(scratch().label);
    orvante::Label label(dpi);
    label.pdfPage(0, 0, document, 1);
    benchmark::DoNotOptimize(label.bytes());
  }
}
BENCHMARK(BM_PdfPage)->Arg(203)->Arg(300)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same page through `pdftoppm -mono`, process start included, as a
// print pipeline would run it.
void BM_Pdftoppm(benchmark::State& state) {
  const std::string dpi = std::to_string(state.range(0));
  const std::string out = scratch().dir / "pdftoppm";
  std::vector<std::string> args{"pdftoppm", "-mono", "-r", dpi, "-f", "1", "-l", "1",
                                scratch().label, out};
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  for (auto _ : state) {
    pid_t child = 0;
    if (posix_spawnp(&child, "pdftoppm", nullptr, nullptr, argv.data(), environ) != 0) {
      state.SkipWithError("pdftoppm is not installed (poppler-utils)");
      break;
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      state.SkipWithError("pdftoppm failed");
      break;
    }
  }
}
BENCHMARK(BM_Pdftoppm)->Arg(203)->Arg(300)->Unit(benchmark::kMillisecond)->UseRealTime();

// Prints as usual and keeps each run's time, for the ratios at the end.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      if (!run.error_occurred) seconds_[run.benchmark_name()] = run.GetAdjustedRealTime();
    }
  }
  void printRatios() const {
    for (const char* dpi : {"203", "300"}) {
      const auto ours = seconds_.find(std::string("BM_PdfPage/") + dpi + "/real_time");
      const auto theirs = seconds_.find(std::string("BM_Pdftoppm/") + dpi + "/real_time");
      if (ours == seconds_.end() || theirs == seconds_.end()) continue;
      std::printf("4 x 6 inch page at %s dpi: %.2fx the time of pdftoppm -mono\n", dpi,
                  ours->second / theirs->second);
    }
  }

 private:
  std::map<std::string, double> seconds_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
  benchmark::Shutdown();
  return 0;
}
