// The pieces between PAPPL and the library: job options to label settings,
// raster lines to images, status bytes to printer-state-reasons and when a
// printer is asked again.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "job_settings.hpp"
#include "page_placement.hpp"
#include "page_raster.hpp"
#include "pdf_filter.hpp"
#include "printer_device.hpp"
#include "printer_status.hpp"

namespace orvante::app {
namespace {

pappl_pr_options_t optionsFor4x6() {
  pappl_pr_options_t options;
  std::memset(&options, 0, sizeof options);
  options.printer_resolution[0] = options.printer_resolution[1] = 300;
  options.media.size_width = 10160;
  options.media.size_length = 15240;
  options.media.tracking = PAPPL_MEDIA_TRACKING_GAP;
  options.copies = 3;
  options.darkness_configured = 53;
  options.print_speed = 4 * 2540;
  return options;
}

TEST(PrinterAppSettings, TakeSizeResolutionSpeedDarknessDitherAndCopiesFromTheJob) {
  auto options = optionsFor4x6();
  cups_option_t vendor{const_cast<char*>("orvante-dither"), const_cast<char*>("atkinson")};
  options.num_vendor = 1;
  options.vendor = &vendor;
  const JobSettings settings = settingsFrom(options);
  EXPECT_EQ(settings.dpi, 300);
  EXPECT_EQ(settings.widthDots(), 1200);
  EXPECT_EQ(settings.heightDots(), 1800);
  EXPECT_EQ(settings.tracking, Tracking::Gap);
  EXPECT_EQ(settings.speedIps, 4);
  EXPECT_EQ(settings.density, 8);
  EXPECT_EQ(settings.dither, Dither::Atkinson);
  EXPECT_EQ(settings.copies, 3);
}

TEST(PrinterAppSettings, OddValuesFallBackInsteadOfFailingTheJob) {
  auto options = optionsFor4x6();
  options.copies = 0;
  options.print_speed = 40 * 2540;
  options.media.tracking = PAPPL_MEDIA_TRACKING_WEB;
  const JobSettings settings = settingsFrom(options);
  EXPECT_EQ(settings.copies, 1);
  EXPECT_EQ(settings.speedIps, 6);
  EXPECT_EQ(settings.tracking, Tracking::Gap);
  EXPECT_EQ(ditherNamed("no-such-dither"), Dither::Threshold);
  EXPECT_EQ(ditherNamed(nullptr), Dither::Threshold);
  EXPECT_EQ(ditherNamed("ordered"), Dither::Ordered8x8);
  EXPECT_EQ(ditherNamed("floyd-steinberg"), Dither::FloydSteinberg);
}

TEST(PrinterAppSettings, DarknessCoversTheWholeDensityRange) {
  EXPECT_EQ(densityFor(0, 0), 0);
  EXPECT_EQ(densityFor(100, 0), 15);
  EXPECT_EQ(densityFor(53, 0), 8);
  // The job's print-darkness moves the printer's, within the range.
  EXPECT_EQ(densityFor(53, -100), 0);
  EXPECT_EQ(densityFor(53, 100), 15);
  EXPECT_EQ(densityFor(0, 20), 3);
}

TEST(PrinterAppSettings, MediaTrackingPicksTheMediaLine) {
  JobSettings settings;
  settings.widthMm = 50;
  settings.heightMm = 30;
  auto text = [&](Tracking tracking) {
    settings.tracking = tracking;
    const Label label = startLabel(settings);
    const auto& bytes = label.bytes();
    return std::string(bytes.begin(), bytes.end());
  };
  EXPECT_EQ(text(Tracking::Gap), "SIZE 50 mm, 30 mm\r\nGAP 2 mm,0 mm\r\nSPEED 4\r\nDENSITY 8\r\nCLS\r\n");
  EXPECT_NE(text(Tracking::Mark).find("BLINE 2 mm,0 mm\r\n"), std::string::npos);
  EXPECT_NE(text(Tracking::Continuous).find("GAP 0 mm,0 mm\r\n"), std::string::npos);
}

TEST(PrinterAppRaster, ReadsEachLineFormatDarkWhereThePageIsDark) {
  const unsigned char black1[] = {0x80, 0x00};  // first pixel dark
  const unsigned char grey8[] = {0, 255, 255, 255, 255, 255, 255, 255, 255};
  const unsigned char black8[] = {255, 0, 0, 0, 0, 0, 0, 0, 0};
  unsigned char rgb24[27] = {};
  std::memset(rgb24 + 3, 255, 24);
  const std::pair<LineFormat, const unsigned char*> lines[] = {
      {LineFormat::Black1, black1}, {LineFormat::Grey8, grey8},
      {LineFormat::Black8, black8}, {LineFormat::Rgb24, rgb24}};
  for (const auto& [format, line] : lines) {
    SCOPED_TRACE(static_cast<int>(format));
    PageRaster page(9, 2, format, 100, 100);
    page.setLine(1, line);
    const Image image = page.image();
    const auto& rgba = image.rgba();
    EXPECT_EQ(rgba[9 * 4], 0) << "the dark pixel";
    EXPECT_EQ(rgba[9 * 4 + 4], 255) << "its light neighbour";
    EXPECT_EQ(rgba[0], 255) << "the line never sent stays white";
  }
}

TEST(PrinterAppRaster, KeepsTheLabelsCropAndRefusesPagesOverTheBudget) {
  PageRaster page(813, 1220, LineFormat::Grey8, 812, 1218);
  EXPECT_EQ(page.width(), 812);
  EXPECT_EQ(page.height(), 1218);
  page.setLine(5000, nullptr);  // a line past the crop is dropped
  EXPECT_THROW(PageRaster(100000, 100000, LineFormat::Grey8, 100000, 100000),
               std::invalid_argument);
  LineFormat format{};
  EXPECT_TRUE(lineFormatOf(8, CUPS_CSPACE_SW, format).empty());
  EXPECT_EQ(format, LineFormat::Grey8);
  EXPECT_TRUE(lineFormatOf(1, CUPS_CSPACE_K, format).empty());
  EXPECT_EQ(format, LineFormat::Black1);
  EXPECT_FALSE(lineFormatOf(16, CUPS_CSPACE_SW, format).empty());
  EXPECT_FALSE(lineFormatOf(32, CUPS_CSPACE_CMYK, format).empty());
}

TEST(PrinterAppPdf, PrintScalingShrinksCentresFillsOrCutsThePage) {
  const auto placed = [](double w, double h, pappl_scaling_t scaling) {
    const PagePlacement p = placePage(w, h, 812, 1218, scaling);
    return std::vector<int>{p.width, p.height, p.x, p.y};
  };
  // A letter page (8.5 x 11 in at 203 dpi) onto a 4 x 6 inch label: shrunk
  // to its width and centred down the label.
  EXPECT_EQ(placed(1725.5, 2233, PAPPL_SCALING_AUTO), (std::vector<int>{812, 1051, 0, 83}));
  // A 50 x 30 mm page: centred as it is, or grown to fit.
  EXPECT_EQ(placed(400, 240, PAPPL_SCALING_AUTO), (std::vector<int>{400, 240, 206, 489}));
  EXPECT_EQ(placed(400, 240, PAPPL_SCALING_FIT), (std::vector<int>{812, 487, 0, 365}));
  // Fill covers the label; none keeps the size; both cut off what passes it.
  EXPECT_EQ(placed(400, 240, PAPPL_SCALING_FILL), (std::vector<int>{2030, 1218, -609, 0}));
  EXPECT_EQ(placed(1000, 100, PAPPL_SCALING_NONE), (std::vector<int>{1000, 100, -94, 559}));
  const Image drawn(4, 2, Bytes(4 * 2 * 4, 255));
  const VisiblePage cut = visiblePart(drawn, {4, 2, -1, 1}, 2, 8);
  EXPECT_EQ(cut.image.pixelWidth(), 2);
  EXPECT_EQ(cut.x, 0);
  EXPECT_EQ(cut.y, 1);
}

TEST(PrinterAppStatus, EachConditionBecomesItsReason) {
  EXPECT_EQ(reasonsFor(PrinterStatus{0x00}), PAPPL_PREASON_NONE);
  EXPECT_EQ(reasonsFor(PrinterStatus{0x01}), PAPPL_PREASON_COVER_OPEN);
  EXPECT_EQ(reasonsFor(PrinterStatus{0x02}), PAPPL_PREASON_MEDIA_JAM);
  EXPECT_EQ(reasonsFor(PrinterStatus{0x04}), PAPPL_PREASON_MEDIA_EMPTY);
  EXPECT_EQ(reasonsFor(PrinterStatus{0x08}), PAPPL_PREASON_MARKER_SUPPLY_EMPTY);
  EXPECT_EQ(reasonsFor(PrinterStatus{0x0F}), kStatusReasons);
  // Paused and printing are no fault: paused stops the queue instead.
  EXPECT_EQ(reasonsFor(PrinterStatus{0x30}), PAPPL_PREASON_NONE);
}

TEST(PrinterAppDevices, EachDeviceUriBecomesTheSecondDoorsAddress) {
  EXPECT_EQ(printerAddressOf("socket://127.0.0.1:9101"), "tcp://127.0.0.1:9101");
  EXPECT_EQ(printerAddressOf("serial:///dev/ttyUSB0?baud=115200"), "serial:///dev/ttyUSB0?baud=115200");
  EXPECT_EQ(printerAddressOf("bt://00:11:62:AA:BB:01"), "bt://00:11:62:AA:BB:01");
  EXPECT_EQ(printerAddressOf("ble://00:11:62:00:00:01"), "ble://00:11:62:00:00:01");
  EXPECT_EQ(printerAddressOf("usb://Orvante/Label?serial=1"), "");
  EXPECT_EQ(printerAddressOf("socket://"), "");
}

TEST(PrinterAppStatus, OnlyNetworkPrintersAreAskedAtTheirAddress) {
  EXPECT_EQ(networkAddressOf("socket://127.0.0.1:9101"), "tcp://127.0.0.1:9101");
  EXPECT_EQ(networkAddressOf("socket://printer.local"), "tcp://printer.local");
  EXPECT_EQ(networkAddressOf("socket://[::1]:9100/?timeout=5"), "tcp://[::1]:9100");
  EXPECT_EQ(networkAddressOf("usb://Orvante/Label?serial=1"), "");
  EXPECT_EQ(networkAddressOf(nullptr), "");
}

TEST(PrinterAppStatus, ASilentPrinterIsAskedLessOftenThenNoMore) {
  using namespace std::chrono_literals;
  QuerySchedule schedule;
  auto now = QuerySchedule::Clock::time_point{} + 1h;
  EXPECT_TRUE(schedule.due(now));
  schedule.failed(now);
  EXPECT_FALSE(schedule.due(now + 1s));
  EXPECT_TRUE(schedule.due(now + 2s));
  schedule.failed(now);
  EXPECT_FALSE(schedule.due(now + 3s));
  EXPECT_TRUE(schedule.due(now + 4s));
  for (int i = 2; i < QuerySchedule::kGiveUpAfter; ++i) schedule.failed(now);
  EXPECT_TRUE(schedule.givenUp());
  EXPECT_FALSE(schedule.due(now + 24h));

  // One that has answered before keeps being asked, at most a minute apart.
  QuerySchedule known;
  known.answered(now);
  for (int i = 0; i < 20; ++i) known.failed(now);
  EXPECT_FALSE(known.givenUp());
  EXPECT_TRUE(known.due(now + 60s));
}

}  // namespace
}  // namespace orvante::app
