#pragma once
// Previews: the labels some printer commands print, drawn by the virtual
// printer's engine in a fresh printer of the resolution asked for, within
// limits that hostile commands cannot pass: a count of labels, the
// library's pixel budget and a time limit, each checked as the engine
// goes so that it stops early.

#include <chrono>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include <orvante/bytes.hpp>
#include <orvante/image.hpp>
#include <orvante/vprinter/printed_label.hpp>

namespace orvante::serve {

struct PreviewLimits {
  std::size_t maxLabels = 50;
  // Printed dots of all the labels of one preview.
  long long maxPixels = kMaxRenderedPixels;
  std::chrono::milliseconds timeLimit{2000};
};

// The printed labels from `first` on, `count` of them, are kept.
struct KeptLabels {
  std::size_t first = 0;
  std::size_t count = std::numeric_limits<std::size_t>::max();
};

struct RenderedPreview {
  std::size_t printed = 0;  // labels the commands printed
  std::vector<vprinter::PrintedLabel> kept;
  // What the engine warned about: unknown commands, images cut off...
  std::vector<std::string> warnings;
};

// Throws HttpError: 413 past the labels or pixels, 503 past the time limit.
RenderedPreview renderPreview(ByteView commands, int dpi, const PreviewLimits& limits,
                              KeptLabels kept = {});

// The warnings as one header value: printable ASCII on one line, bounded.
std::string warningsHeader(const std::vector<std::string>& warnings);

// A PDF of the labels, a page each at its size.
Bytes pdfOf(const std::vector<vprinter::PrintedLabel>& labels, int dpi);

}  // namespace orvante::serve
