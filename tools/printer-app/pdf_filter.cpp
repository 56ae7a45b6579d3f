#include "pdf_filter.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include <orvante/pdf.hpp>

#include "job_callbacks.hpp"
#include "job_settings.hpp"
#include "printer_lock.hpp"

namespace orvante::app {

namespace {

// One label of the page; a page larger than the label is drawn again at the
// resolution that shrinks it onto the label.
Bytes pageLabel(const JobSettings& settings, const PdfDocument& document, int page) {
  try {
    Label label = startLabel(settings);
    label.pdfPage(0, 0, document, page, {settings.dither});
    return label.print(1, settings.copies).bytes();
  } catch (const std::invalid_argument&) {
    const auto size = document.pageSize(page);
    if (!size) throw;
    const int width = static_cast<int>(std::ceil(size->width * settings.dpi / 72));
    const int height = static_cast<int>(std::ceil(size->height * settings.dpi / 72));
    // The size lines stay in millimetres.
    JobSettings shrunk = settings;
    shrunk.dpi = fittingDpi(settings.dpi, width, height, settings.widthDots(),
                            settings.heightDots());
    Label label = startLabel(shrunk);
    label.pdfPage(0, 0, document, page, {settings.dither});
    return label.print(1, settings.copies).bytes();
  }
}

}  // namespace

int fittingDpi(int dpi, int pageWidth, int pageHeight, int labelWidth, int labelHeight) {
  if (pageWidth <= labelWidth && pageHeight <= labelHeight) return dpi;
  const double scale = std::min(static_cast<double>(labelWidth) / std::max(pageWidth, 1),
                                static_cast<double>(labelHeight) / std::max(pageHeight, 1));
  return std::max(1, static_cast<int>(std::floor(dpi * scale)));
}

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
  pappl_pr_options_t* options = papplJobCreatePrintOptions(job, static_cast<unsigned>(pages), false);
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
