#include "batch_progress.hpp"

#include <unistd.h>

#include <cmath>

namespace orvante::cli {

std::string progressLine(const BatchProgress& progress, int width) {
  const double part = progress.total ? static_cast<double>(progress.done) / progress.total : 1;
  const int filled = static_cast<int>(std::floor(part * width));
  std::string line = "[" + std::string(filled, '#') + std::string(width - filled, '.') + "] " +
                     std::to_string(progress.done) + "/" + std::to_string(progress.total) +
                     " labels";
  if (progress.rate > 0) {
    char rate[32];
    std::snprintf(rate, sizeof rate, "  %.1f/s", progress.rate);
    line += rate;
  }
  if (progress.left) {
    const long long seconds = progress.left->count();
    char left[48];
    std::snprintf(left, sizeof left, "  %lld:%02lld left", seconds / 60, seconds % 60);
    line += left;
  }
  if (!progress.waiting.empty()) line += "  waiting: " + progress.waiting;
  return line;
}

BatchProgressBar::BatchProgressBar(std::FILE* out) : out_(out), terminal_(::isatty(fileno(out))) {}

BatchProgressBar::~BatchProgressBar() { finish(); }

void BatchProgressBar::show(const BatchProgress& progress) {
  const bool changed = progress.waiting != waiting_;
  waiting_ = progress.waiting;
  if (!terminal_) {
    if (!changed) return;
    if (waiting_.empty()) {
      std::fprintf(out_, "orvante: printing again (%zu of %zu done)\n", progress.done, progress.total);
    } else {
      std::fprintf(out_, "orvante: waiting: %s\n", waiting_.c_str());
    }
    std::fflush(out_);
    return;
  }
  // A few redraws a second are enough for the eye.
  const auto now = std::chrono::steady_clock::now();
  const bool last = progress.done == progress.total;
  if (!changed && !last && drawn_ && now - lastDrawn_ < std::chrono::milliseconds(100)) return;
  lastDrawn_ = now;
  std::fprintf(out_, "\r%s\033[K", progressLine(progress).c_str());
  std::fflush(out_);
  drawn_ = true;
}

void BatchProgressBar::finish() {
  if (drawn_) std::fputc('\n', out_);
  drawn_ = false;
}

}  // namespace orvante::cli
