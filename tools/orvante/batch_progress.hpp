#pragma once
// The progress of `orvante batch` on standard error: on a terminal a bar
// redrawn in place (labels done, rate, time left, and why it waits);
// otherwise one line each time the batch starts or stops waiting.

#include <chrono>
#include <cstdio>
#include <string>

#include <orvante/batch.hpp>

namespace orvante::cli {

class BatchProgressBar {
 public:
  explicit BatchProgressBar(std::FILE* out);
  ~BatchProgressBar();
  void show(const BatchProgress& progress);
  // Ends the bar's line, before other messages.
  void finish();

 private:
  std::FILE* out_;
  bool terminal_;
  bool drawn_ = false;
  std::string waiting_;
  std::chrono::steady_clock::time_point lastDrawn_{};
};

// The bar's text: "[#####.....] 120/300 labels  40.2/s  0:04 left".
std::string progressLine(const BatchProgress& progress, int width = 30);

}  // namespace orvante::cli
