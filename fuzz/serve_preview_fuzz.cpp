// Hostile printer commands through orvante serve's preview with small
// limits, so that most inputs meet one: the engine is left mid-command by
// the preview's own exception, which must free everything and corrupt
// nothing; the pictures and the PDF of what printed are then made as the
// service makes them.

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "serve/http_error.hpp"
#include "serve/preview.hpp"

using namespace orvante;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  serve::PreviewLimits limits;
  limits.maxLabels = 3;
  limits.maxPixels = 4'000'000;
  limits.timeLimit = std::chrono::milliseconds(500);
  try {
    const serve::RenderedPreview preview =
        serve::renderPreview(ByteView(data, size), size % 2 ? 300 : 203, limits, {1, 2});
    for (const auto& label : preview.kept) label.png();
    serve::pdfOf(preview.kept, 203);
    serve::warningsHeader(preview.warnings);
  } catch (const serve::HttpError& refused) {
    if (refused.status() != 413 && refused.status() != 503) __builtin_trap();
  }
  return 0;
}
