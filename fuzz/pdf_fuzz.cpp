// libFuzzer target: any bytes as a PDF document, each page (and the missing
// pages around them) drawn the way the PDF printing operations draw it,
// then thresholded and packed.
//
//   LSAN_OPTIONS=suppressions=tests/lsan.supp \
//     build/fuzz/fuzz/pdf_fuzz -rss_limit_mb=2048 -max_total_time=300 fuzz/corpus/pdf

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <orvante/exception.hpp>
#include <orvante/pdf.hpp>

#include "pdf/page_drawing.hpp"
#include "raster/pdf_pages.hpp"
#include "raster/raster_formats.hpp"

namespace {

// Pages are drawn small so each input stays quick; a page whose area would
// still be large is drawn smaller again. The budget itself is exercised
// by the resolution that no page fits.
constexpr std::int32_t kDpi = 36;
constexpr double kQuickPixels = 4e6;

std::int32_t quickDpi(const orvante::PdfDocument& document, int page) {
  const auto size = orvante::pdf::pageSize(document, page);
  if (!size) return kDpi;
  const double scale = kDpi / 72.0;
  return size->width * scale * size->height * scale > kQuickPixels ? 1 : kDpi;
}

void drawEveryWay(const orvante::PdfDocument& document, int page) {
  try {
    const auto image = orvante::raster::pdfPageAtResolution(document, page, quickDpi(document, page));
    (void)orvante::raster::thresholdRaster(image, true, 128);
    const auto stretched = orvante::raster::pdfPageStretched(document, page, 40, 24, kDpi);
    (void)orvante::raster::thresholdRaster(stretched, true, 128);
  } catch (const orvante::Exception&) {
    // A page beyond the pixel budget: refused, as the operations refuse it.
  }
  try {
    (void)orvante::raster::pdfPageAtResolution(document, page, 1 << 30);
  } catch (const orvante::Exception&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto document = orvante::PdfDocument::fromData({data, size});
  const int pages = std::min(document.pageCount(), 4);
  for (int page = 0; page <= pages + 1; ++page) drawEveryWay(document, page);
  return 0;
}
