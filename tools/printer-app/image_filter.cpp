#include "image_filter.hpp"

#include "printer_lock.hpp"

namespace orvante::app {

Bytes greyOnWhite(const Image& image) {
  const Bytes& rgba = image.rgba();
  Bytes grey(rgba.size() / 4);
  for (std::size_t i = 0; i < grey.size(); ++i) {
    const unsigned r = rgba[4 * i], g = rgba[4 * i + 1], b = rgba[4 * i + 2], a = rgba[4 * i + 3];
    // Premultiplied colour over white paper, then its luminance.
    const unsigned paper = 255 - a;
    grey[i] = static_cast<std::uint8_t>(((r + paper) * 299 + (g + paper) * 587 + (b + paper) * 114) / 1000);
  }
  return grey;
}

bool printImage(pappl_job_t* job, pappl_device_t* device, void* /*context*/) {
  const std::lock_guard oneJobAtATime(printerLock(job));
  const auto [mine, file] = claimDocument(job);
  if (!mine) return true;  // printed by the thread that claimed it
  if (file == nullptr) return false;
  // PAPPL's own decoders would try any size; the library's stop at its budget.
  const Image image = Image::fromFile(file);
  if (image.empty()) {
    papplJobSetMessage(job,
                       "The image could not be printed: it is damaged, or larger than %lld "
                       "megapixels or %d pixels a side.",
                       kMaxRenderedPixels / 1'000'000, kMaxRenderedSide);
    papplJobSetReasons(job, PAPPL_JREASON_DOCUMENT_UNPRINTABLE_ERROR, PAPPL_JREASON_NONE);
    return false;
  }
  const Bytes grey = greyOnWhite(image);
  pappl_pr_options_t* options = papplJobCreatePrintOptions(job, 1, false);
  const bool printed = papplJobFilterImage(job, device, options, grey.data(), image.pixelWidth(),
                                           image.pixelHeight(), 1, 0, true);
  papplJobDeletePrintOptions(options);
  return printed;
}

}  // namespace orvante::app
