#include <unistd.h>

#include <cstdio>

#include "cli.hpp"

namespace orvante::cli {

Printer openPrinter(const Options& options) {
  return Printer::open(options.printer, std::chrono::milliseconds(options.timeoutMs));
}

void showProgress(Printer& printer, std::size_t from) {
  if (!::isatty(STDERR_FILENO)) return;
  printer.onProgress([from](std::size_t sent, std::size_t total) {
    if (total < from) return;
    const int width = 40;
    const int done = static_cast<int>(static_cast<double>(sent) / total * width);
    std::fprintf(stderr, "\r[%.*s%*s] %3d%% %zu/%zu bytes", done,
                 "########################################", width - done, "",
                 static_cast<int>(100.0 * sent / total), sent, total);
    if (sent == total) std::fputc('\n', stderr);
  });
}

}  // namespace orvante::cli
