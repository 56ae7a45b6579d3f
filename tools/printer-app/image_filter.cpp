#include "image_filter.hpp"

#include <orvante/image.hpp>
#include <orvante/label.hpp>

#include "job_callbacks.hpp"
#include "job_settings.hpp"
#include "page_placement.hpp"
#include "printer_lock.hpp"

namespace orvante::app {

bool printImage(pappl_job_t* job, pappl_device_t* device, void* /*context*/) {
  const std::lock_guard oneJobAtATime(printerLock(job));
  const auto [mine, file] = claimDocument(job);
  if (!mine) return true;  // printed by the thread that claimed it
  if (file == nullptr) return false;
  const Image image = Image::fromFile(file);
  if (image.empty()) {
    papplJobSetMessage(job,
                       "The image could not be printed: it is damaged, or larger than %lld "
                       "megapixels or %d pixels a side.",
                       kMaxRenderedPixels / 1'000'000, kMaxRenderedSide);
    papplJobSetReasons(job, PAPPL_JREASON_DOCUMENT_UNPRINTABLE_ERROR, PAPPL_JREASON_NONE);
    return false;
  }
  pappl_pr_options_t* options = papplJobCreatePrintOptions(job, 1, false);
  const JobSettings settings = settingsFrom(*options);
  papplJobDeletePrintOptions(options);
  papplJobSetImpressions(job, 1);

  const int labelWidth = settings.widthDots(), labelHeight = settings.heightDots();
  const PagePlacement placement =
      placePage(image.pixelWidth(), image.pixelHeight(), labelWidth, labelHeight, settings.scaling);
  const bool asItIs =
      placement.width == image.pixelWidth() && placement.height == image.pixelHeight();
  const Image drawn = asItIs ? image : image.scaled(placement.width, placement.height);
  const VisiblePage visible = visiblePart(drawn, placement, labelWidth, labelHeight);
  Bytes bytes;
  try {
    Label label = startLabel(settings);
    if (!visible.image.empty()) label.image(visible.x, visible.y, visible.image, {settings.dither});
    bytes = label.print(1, settings.copies).bytes();
  } catch (const std::exception& error) {
    papplJobSetMessage(job, "The image could not be made into a label: %s", error.what());
    return false;
  }
  if (!sendToDevice(job, device, bytes)) return false;
  papplJobSetImpressionsCompleted(job, 1);
  return true;
}

}  // namespace orvante::app
