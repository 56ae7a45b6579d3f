#include "job_settings.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "driver.hpp"

namespace orvante::app {

namespace {

// IPP gives print speed in hundredths of a millimetre per second.
constexpr double kSpeedUnitsPerInch = 2540;
// The gap or black mark the printer is told to look for between labels.
constexpr double kGapMm = 2;

int dotsFor(double mm, int dpi) {
  return static_cast<int>(std::lround(mm * dpi / 25.4));
}

}  // namespace

int JobSettings::widthDots() const {
  return dotsFor(widthMm, dpi);
}
int JobSettings::heightDots() const {
  return dotsFor(heightMm, dpi);
}

int densityFor(int darknessConfigured, int printDarkness) {
  const int level = std::clamp(darknessConfigured + printDarkness, 0, 100);
  return static_cast<int>(std::lround(level * 15 / 100.0));
}

Dither ditherNamed(const char* name) {
  if (name == nullptr) return Dither::Threshold;
  if (std::strcmp(name, "floyd-steinberg") == 0) return Dither::FloydSteinberg;
  if (std::strcmp(name, "atkinson") == 0) return Dither::Atkinson;
  if (std::strcmp(name, "ordered") == 0) return Dither::Ordered8x8;
  return Dither::Threshold;
}

JobSettings settingsFrom(const pappl_pr_options_t& options) {
  JobSettings settings;
  if (options.printer_resolution[0] > 0) settings.dpi = options.printer_resolution[0];
  settings.widthMm = options.media.size_width / 100.0;
  settings.heightMm = options.media.size_length / 100.0;
  switch (options.media.tracking) {
    case PAPPL_MEDIA_TRACKING_MARK:
      settings.tracking = Tracking::Mark;
      break;
    case PAPPL_MEDIA_TRACKING_CONTINUOUS:
      settings.tracking = Tracking::Continuous;
      break;
    default:
      settings.tracking = Tracking::Gap;
  }
  if (options.print_speed > 0) {
    settings.speedIps = std::clamp(std::round(options.print_speed / kSpeedUnitsPerInch),
                                   double(kMinSpeedIps), double(kMaxSpeedIps));
  }
  settings.density = densityFor(options.darkness_configured, options.print_darkness);
  settings.dither = ditherNamed(cupsGetOption(kDitherOption, options.num_vendor, options.vendor));
  settings.copies = std::max(1, options.copies);
  if (options.print_scaling) settings.scaling = options.print_scaling;
  return settings;
}

Label startLabel(const JobSettings& settings) {
  Label label(settings.dpi);
  label.size(settings.widthMm, settings.heightMm);
  switch (settings.tracking) {
    case Tracking::Gap:
      label.gap(kGapMm);
      break;
    case Tracking::Mark:
      label.blackMark(kGapMm);
      break;
    case Tracking::Continuous:
      label.gap(0);  // no gap: the printer feeds the length it is told
      break;
  }
  label.speed(settings.speedIps).density(settings.density).clear();
  return label;
}

}  // namespace orvante::app
