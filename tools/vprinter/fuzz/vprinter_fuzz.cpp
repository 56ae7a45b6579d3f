// libFuzzer target for the virtual printer's parser and renderer. Each
// input goes to two engines, whole to one and in pieces to the other
// (the first byte picks the piece size); both must give the same replies
// and journal, since any split of a byte stream must act the same.
// Labels printed are turned into PNGs, so the renderer runs end to end.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <orvante/vprinter/engine.hpp>

namespace {

using namespace orvante;
using namespace orvante::vprinter;

// Small limits keep each run fast; they change no code path.
Options fuzzOptions(std::vector<std::string>& journal) {
  Options options;
  options.maxLabelWidthDots = 320;
  options.maxLabelHeightDots = 320;
  options.maxCopiesPerPrint = 2;
  options.maxLineBytes = 4096;
  options.memoryBytes = 64 * 1024;
  options.onJournal = [&journal](std::string_view line) { journal.emplace_back(line); };
  options.clock = [] { return std::chrono::system_clock::time_point(); };
  return options;
}

struct Run {
  std::vector<std::string> journal;
  Bytes replies;
  std::vector<PrintedLabel> labels;
};

Run runEngine(ByteView input, std::size_t piece) {
  Run run;
  Engine engine(fuzzOptions(run.journal));
  for (std::size_t at = 0; at < input.size(); at += piece) {
    const Bytes replies = engine.feed(1, input.subspan(at, std::min(piece, input.size() - at)));
    run.replies.insert(run.replies.end(), replies.begin(), replies.end());
  }
  engine.disconnect(1);
  run.labels = engine.takePrinted();
  return run;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t piece = 1 + data[0] % 16;
  const ByteView input(data + 1, size - 1);
  const Run whole = runEngine(input, input.size() + 1);
  const Run split = runEngine(input, piece);
  if (whole.replies != split.replies || whole.journal != split.journal ||
      whole.labels.size() != split.labels.size()) {
    std::fprintf(stderr, "split into pieces of %zu acts differently\n", piece);
    std::abort();
  }
  for (std::size_t i = 0; i < whole.labels.size(); ++i) {
    if (whole.labels[i].rows() != split.labels[i].rows()) std::abort();
    if (whole.labels[i].png().size() < 8) std::abort();
  }
  return 0;
}
