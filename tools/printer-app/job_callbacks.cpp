#include "job_callbacks.hpp"

#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>

#include "job_settings.hpp"
#include "page_raster.hpp"
#include "printer_device.hpp"
#include "printer_lock.hpp"

namespace orvante::app {

namespace {

// What a raster job carries from one callback to the next.
struct RasterJob {
  JobSettings settings;
  std::optional<PageRaster> page;
  // PAPPL sends the pages of an image once per copy; the print line
  // already asks the printer for every copy, so the repeats are dropped.
  std::set<unsigned> printedPages;
  bool repeat = false;
  // Another thread has this job: this one prints nothing.
  bool duplicate = false;
};

RasterJob* rasterJob(pappl_job_t* job) {
  return static_cast<RasterJob*>(papplJobGetData(job));
}

}  // namespace

bool sendToDevice(pappl_job_t* job, pappl_device_t* device, ByteView bytes) {
  // A whole label at a time: raster jobs PAPPL runs side by side on one
  // printer do not mix their labels' bytes.
  const std::lock_guard oneLabelAtATime(printerLock(job));
  return deliverLabel(job, device, bytes);
}

bool printRawFile(pappl_job_t* job, pappl_pr_options_t* /*options*/, pappl_device_t* device) {
  const std::lock_guard oneJobAtATime(printerLock(job));
  if (!claimJob(job)) return true;  // printed by the thread that claimed it
  const char* file = jobFile(job);
  std::ifstream input(file ? file : "", std::ios::binary);
  if (!input) {
    papplJobSetMessage(job, "The job's file could not be opened.");
    return false;
  }
  // Printer commands go as one piece, confirmed once: a raw job cannot be
  // cut into labels, so a printer lost on the way gets all of it again.
  const Bytes bytes{std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
  if (!sendToDevice(job, device, bytes)) return false;
  papplJobSetImpressionsCompleted(job, 1);
  return true;
}

bool startJob(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* /*device*/) {
  auto state = std::make_unique<RasterJob>();
  state->settings = settingsFrom(*options);
  state->duplicate = !claimJob(job);
  papplJobSetData(job, state.release());
  return true;
}

bool startPage(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* /*device*/,
               unsigned page) {
  RasterJob* state = rasterJob(job);
  state->repeat = state->duplicate || !state->printedPages.insert(page).second;
  if (state->repeat) return true;
  const auto& header = options->header;
  LineFormat format{};
  const std::string refused = lineFormatOf(header.cupsBitsPerPixel, header.cupsColorSpace, format);
  if (!refused.empty()) {
    papplJobSetMessage(job, "%s", refused.c_str());
    return false;
  }
  try {
    state->page.emplace(static_cast<int>(header.cupsWidth), static_cast<int>(header.cupsHeight),
                        format, state->settings.widthDots(), state->settings.heightDots());
  } catch (const std::exception& error) {
    papplJobSetMessage(job, "%s", error.what());
    return false;
  }
  return true;
}

bool writeLine(pappl_job_t* job, pappl_pr_options_t* /*options*/, pappl_device_t* /*device*/,
               unsigned y, const unsigned char* line) {
  RasterJob* state = rasterJob(job);
  if (state == nullptr) {
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "Line %u arrived outside a page.", y);
    return false;
  }
  if (state->page) state->page->setLine(static_cast<int>(y), line);
  return true;
}

bool endPage(pappl_job_t* job, pappl_pr_options_t* /*options*/, pappl_device_t* device,
             unsigned /*page*/) {
  RasterJob* state = rasterJob(job);
  if (state->repeat) return true;
  if (!state->page) return false;
  Bytes bytes;
  try {
    Label label = startLabel(state->settings);
    label.image(0, 0, state->page->image(), {state->settings.dither});
    label.print(1, state->settings.copies);
    bytes = label.bytes();
  } catch (const std::exception& error) {
    papplJobSetMessage(job, "The page could not be made into a label: %s", error.what());
    return false;
  }
  state->page.reset();
  return sendToDevice(job, device, bytes);
}

bool endJob(pappl_job_t* job, pappl_pr_options_t* /*options*/, pappl_device_t* /*device*/) {
  delete rasterJob(job);
  papplJobSetData(job, nullptr);
  return true;
}

}  // namespace orvante::app
