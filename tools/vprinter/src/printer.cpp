#include "printer.hpp"

#include "commands.hpp"

#include <algorithm>

namespace orvante::vprinter {

namespace {

// A 4 x 6 inch label with a 3 mm gap until SIZE and GAP say otherwise.
constexpr double kPowerOnWidthInches = 4;
constexpr double kPowerOnHeightInches = 6;
constexpr double kPowerOnGapMm = 3;

LabelSettings powerOnSettings(const Options& options) {
  LabelSettings settings;
  settings.width = std::min(static_cast<int>(kPowerOnWidthInches * options.dpi),
                            options.maxLabelWidthDots);
  settings.height = std::min(static_cast<int>(kPowerOnHeightInches * options.dpi),
                             options.maxLabelHeightDots);
  settings.gap = static_cast<int>(kPowerOnGapMm * dotsPerMm(options.dpi));
  settings.codePage = options.codePage;
  return settings;
}

}  // namespace

Printer::Printer(Options& options)
    : options(options),
      settings(powerOnSettings(options)),
      canvas(settings.width, settings.height),
      replies_(&noReplies_) {}

std::size_t Printer::freeMemory() const {
  std::size_t used = 0;
  for (const auto& [name, bytes] : files) used += bytes.size();
  return used >= options.memoryBytes ? 0 : options.memoryBytes - used;
}

std::string Printer::resize(int width, int height) {
  std::string warning;
  const int clampedWidth = std::clamp(width, 1, options.maxLabelWidthDots);
  const int clampedHeight = std::clamp(height, 1, options.maxLabelHeightDots);
  if (clampedWidth != width || clampedHeight != height) {
    warning = "label size limited to " + std::to_string(clampedWidth) + " x " +
              std::to_string(clampedHeight) + " dots";
  }
  canvas.resize(clampedWidth, clampedHeight);
  settings.width = clampedWidth;
  settings.height = clampedHeight;
  return warning;
}

void Printer::powerOn() {
  settings = powerOnSettings(options);
  canvas.resize(settings.width, settings.height);
  canvas.clear();
  tagAnswerDue = false;
  diagnosticInterface = "NET";
}

double Printer::labelLengthMm() const {
  return static_cast<double>(settings.height + settings.gap) / dotsPerMm(options.dpi);
}

void Printer::print(long count, JournalEntry& entry) {
  for (long copy = 0; copy < count; ++copy) {
    PrintedLabel label = canvas.snapshot(settings.turned, settings.mirrored);
    feedLabel();
    battery.labelPrinted();
    if (options.onPrinted) {
      entry.labels.push_back(options.onPrinted(label));
    } else {
      printed.push_back(std::move(label));
      entry.labels.push_back("#" + std::to_string(printed.size()));
    }
  }
  entry.outcome = Outcome::Printed;
}

}  // namespace orvante::vprinter
