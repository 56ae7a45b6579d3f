#pragma once
// What a job asks of the printer, taken from PAPPL's print options: the
// label size, media tracking, speed, darkness, dithering and copies. Kept
// apart from PAPPL's callbacks so that the mapping can be checked alone.

#include <pappl/pappl.h>

#include <orvante/dither.hpp>
#include <orvante/label.hpp>

namespace orvante::app {

enum class Tracking { Gap, Mark, Continuous };

struct JobSettings {
  int dpi = 203;
  double widthMm = 0;
  double heightMm = 0;
  Tracking tracking = Tracking::Gap;
  double speedIps = 4;
  int density = 8;  // the printer's darkness, 0 to 15
  Dither dither = Dither::Threshold;
  int copies = 1;
  // IPP print-scaling of PDF pages: auto unless the job says.
  pappl_scaling_t scaling = PAPPL_SCALING_AUTO;

  // The label's size in dots at the printer's resolution.
  int widthDots() const;
  int heightDots() const;
};

// Reads the job's options. Missing or odd values fall back to the driver's
// defaults instead of failing the job.
JobSettings settingsFrom(const pappl_pr_options_t& options);

// The darkness for the printer's density command (0 to 15): the printer's
// configured darkness (0 to 100) moved by the job's print-darkness
// (-100 to 100).
int densityFor(int darknessConfigured, int printDarkness);

// The dithering named by the vendor option value; Threshold for anything else.
Dither ditherNamed(const char* name);

// A label that starts with the size, media, speed, density and clear lines.
Label startLabel(const JobSettings& settings);

}  // namespace orvante::app
