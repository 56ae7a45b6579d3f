#include "pdf_filter.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include <orvante/pdf.hpp>

#include "job_callbacks.hpp"
#include "job_settings.hpp"
#include "page_placement.hpp"
#include "printer_lock.hpp"

namespace orvante::app {

namespace {

// One label of the page, scaled and placed as the job's print-scaling says.
Bytes pageLabel(const JobSettings& settings, const PdfDocument& document, int page) {
  const auto size = document.pageSize(page);
  if (!size) throw std::invalid_argument("the document has no page " + std::to_string(page));
  const int labelWidth = settings.widthDots(), labelHeight = settings.heightDots();
  const PagePlacement placement =
      placePage(size->width * settings.dpi / 72, size->height * settings.dpi / 72, labelWidth,
                labelHeight, settings.scaling);
  const Image drawn = document.drawPage(page, placement.width, placement.height);
  if (drawn.empty()) {
    throw std::invalid_argument("the page would need more than " +
                                std::to_string(kMaxRenderedPixels / 1'000'000) + " megapixels");
  }
  const VisiblePage visible = visiblePart(drawn, placement, labelWidth, labelHeight);
  Label label = startLabel(settings);
  if (!visible.image.empty()) label.image(visible.x, visible.y, visible.image, {settings.dither});
  return label.print(1, settings.copies).bytes();
}

}  // namespace

bool printPdf(pappl_job_t* job, pappl_device_t* device, void* /*context*/) {
  const std::lock_guard oneJobAtATime(printerLock(job));
  const auto [mine, file] = claimDocument(job);
  if (!mine) return true;  // printed by the thread that claimed it
  if (file == nullptr) return false;
  const PdfDocument document = PdfDocument::open(file);
  const int pages = document.pageCount();
  if (pages == 0) {
    papplJobSetMessage(job, "The PDF file could not be read: it is damaged, empty or locked.");
    papplJobSetReasons(job, PAPPL_JREASON_DOCUMENT_FORMAT_ERROR, PAPPL_JREASON_NONE);
    return false;
  }
  pappl_pr_options_t* options =
      papplJobCreatePrintOptions(job, static_cast<unsigned>(pages), false);
  const JobSettings settings = settingsFrom(*options);
  papplJobDeletePrintOptions(options);

  papplJobSetImpressions(job, pages);
  for (int page = 1; page <= pages; ++page) {
    if (papplJobIsCanceled(job)) return false;
    Bytes bytes;
    try {
      bytes = pageLabel(settings, document, page);
    } catch (const std::exception& error) {
      papplJobSetMessage(job, "Page %d could not be printed: %s", page, error.what());
      papplJobSetReasons(job, PAPPL_JREASON_DOCUMENT_UNPRINTABLE_ERROR, PAPPL_JREASON_NONE);
      return false;
    }
    if (!sendToDevice(job, device, bytes)) return false;
    papplJobSetImpressionsCompleted(job, 1);
  }
  return true;
}

}  // namespace orvante::app
