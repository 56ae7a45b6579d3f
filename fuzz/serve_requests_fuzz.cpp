// What orvante serve parses itself from hostile requests: the preview's
// query values, template-preview and template-job bodies (then filled as
// the service fills them), the Authorization header, the listening
// address and printer options. Refusals are exceptions of known kinds;
// anything else (a crash, a sanitizer report, another exception) is a bug.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <orvante/batch.hpp>

#include "serve/http_error.hpp"
#include "serve/requests.hpp"

using namespace orvante;

namespace {

template <typename Work>
void refusedOrDone(Work work) {
  try {
    work();
  } catch (const serve::HttpError&) {
  } catch (const std::invalid_argument&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const auto amp = input.find('&');
  const std::string_view dpi = input.substr(0, amp);
  const std::string_view index = amp == std::string_view::npos ? std::string_view() : input.substr(amp + 1);

  refusedOrDone([&] { serve::parsePreviewQuery(dpi, index); });
  refusedOrDone([&] { serve::parsePreviewQuery(std::nullopt, input); });
  refusedOrDone([&] {
    const serve::TemplatePreview preview = serve::parseTemplatePreview(input);
    try {
      preview.labels.fill(preview.record).bytes();
    } catch (const RecordError&) {
    }
  });
  refusedOrDone([&] {
    serve::TemplateJob job = serve::parseTemplateJob(input);
    try {
      Batch batch(job.labels, std::move(job.records));
    } catch (const RecordError&) {
    }
  });
  serve::bearerMatches(input, "token-of-the-service");
  serve::bearerMatches(input, dpi);
  refusedOrDone([&] { serve::parseListen(input); });
  refusedOrDone([&] { serve::parsePrinterOption(input); });
  serve::isLoopback(input);
  return 0;
}
