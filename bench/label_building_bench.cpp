// Building labels through orvante::Label, the C++ side of the Python
// module's cost per call (bench/python_label_bench.py runs both):
//
//   build/default/bench/label_building_bench
//
// shippingLabel: the README's label, seven calls from the constructor to
// print(); textLine: one text() call on a label that is cleared now and then.

#include <benchmark/benchmark.h>

#include <orvante/label.hpp>

namespace {

void shippingLabel(benchmark::State& state) {
  for (auto _ : state) {
    orvante::Label label(203);
    label.size(50, 30).gap(2).clear()
        .text(20, 20, "3", "Hello")
        .barcode(20, 80, "128", "ABC-123", 60)
        .print();
    benchmark::DoNotOptimize(label.bytes().data());
  }
}
BENCHMARK(shippingLabel);

void textLine(benchmark::State& state) {
  orvante::Label label(203);
  int lines = 0;
  for (auto _ : state) {
    label.text(20, 20, "3", "Hello");
    // Keeps the label small, as a label of many lines would be.
    if (++lines == 1000) {
      state.PauseTiming();
      label = orvante::Label(203);
      lines = 0;
      state.ResumeTiming();
    }
  }
}
BENCHMARK(textLine);

}  // namespace

BENCHMARK_MAIN();
