#pragma once
// A running application with one printer, "label", whose device is a
// running virtual printer; helpers to print and to look at the labels.

#include <cairo.h>
#include <gmock/gmock.h>

#include <cstring>
#include <set>

#include "app_process.hpp"
#include "test_documents.hpp"

namespace orvante::testing {

struct PrintedLabel {
  int width = 0;
  int height = 0;
  std::vector<std::uint32_t> pixels;
  bool dark(int x, int y) const { return (pixels[y * width + x] & 0xFF) < 128; }
};

inline PrintedLabel readLabel(const fs::path& path) {
  PrintedLabel label;
  cairo_surface_t* png = cairo_image_surface_create_from_png(path.c_str());
  cairo_surface_t* image = cairo_image_surface_create(CAIRO_FORMAT_RGB24,
                                                      cairo_image_surface_get_width(png),
                                                      cairo_image_surface_get_height(png));
  cairo_t* cr = cairo_create(image);
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  cairo_set_source_surface(cr, png, 0, 0);
  cairo_paint(cr);
  cairo_destroy(cr);
  cairo_surface_flush(image);
  label.width = cairo_image_surface_get_width(image);
  label.height = cairo_image_surface_get_height(image);
  const int stride = cairo_image_surface_get_stride(image);
  const unsigned char* data = cairo_image_surface_get_data(image);
  for (int y = 0; y < label.height; ++y) {
    const auto* row = reinterpret_cast<const std::uint32_t*>(data + y * stride);
    label.pixels.insert(label.pixels.end(), row, row + label.width);
  }
  cairo_surface_destroy(image);
  cairo_surface_destroy(png);
  return label;
}

class PrinterAppTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto added = app.addPrinter("label", printer.port());
    ASSERT_EQ(added.status, 0) << added.output << app.log();
    writePng(app.folder() / "label.png");
    writePdf(app.folder() / "label.pdf");
    writePwgRaster(app.folder() / "label.pwg");
  }

  CommandResult print(const fs::path& file, const std::string& format, int copies = 1) {
    return app.ipptool("label", "print-and-wait.test",
                       {{"filename", file.string()}, {"filetype", format},
                        {"copies", std::to_string(copies)}});
  }

  CommandResult printerAttributes() { return app.ipptool("label", "printer-attributes.test"); }

  // Submits without waiting; the job's id.
  std::string submit(const fs::path& file, const std::string& format,
                     const std::string& to = "label") {
    const auto submitted =
        app.ipptool(to, "submit.test", {{"filename", file.string()}, {"filetype", format}});
    const auto at = submitted.output.find("job-id (integer) = ");
    EXPECT_NE(at, std::string::npos) << submitted.output << app.log();
    if (at == std::string::npos) return "0";
    const auto from = at + std::strlen("job-id (integer) = ");
    return submitted.output.substr(from, submitted.output.find_first_not_of("0123456789", from) - from);
  }

  std::string jobState(const std::string& job, const std::string& of = "label") {
    return app.ipptool(of, "job-state.test", {{"job", job}}).output;
  }

  // Waits (up to `seconds`) until the job's state shows the text.
  bool jobShows(const std::string& job, const std::string& text, int seconds = 60,
                const std::string& of = "label") {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < until) {
      if (jobState(job, of).find(text) != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
  }

  // How many labels the folder holds, and how many of them differ.
  std::pair<std::size_t, std::size_t> labelsAndDistinct(const fs::path& folder) const {
    std::set<std::string> distinct;
    std::size_t all = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
      ++all;
      distinct.insert(readFile(entry.path()));
    }
    return {all, distinct.size()};
  }

  std::size_t labelCount() const {
    if (!fs::exists(printer.labels())) return 0;
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(printer.labels()), fs::directory_iterator()));
  }

  PrintedLabel label(int number) const {
    char name[32];
    std::snprintf(name, sizeof name, "label-%04d.png", number);
    return readLabel(printer.labels() / name);
  }

  // A 4 x 6 inch label at 203 dpi with the inch square half an inch in.
  static void expectSquareLabel(const PrintedLabel& label) {
    EXPECT_NEAR(label.width, 4 * kLabelDpi, 2);
    EXPECT_NEAR(label.height, 6 * kLabelDpi, 2);
    if (label.width < 4 * kLabelDpi - 2 || label.height < 6 * kLabelDpi - 2) return;
    EXPECT_TRUE(label.dark(kLabelDpi, kLabelDpi)) << "the square's middle";
    EXPECT_TRUE(label.dark(kLabelDpi / 2 + 3, kLabelDpi / 2 + 3)) << "the square's corner";
    EXPECT_FALSE(label.dark(kLabelDpi / 2 - 4, kLabelDpi)) << "left of the square";
    EXPECT_FALSE(label.dark(kLabelDpi * 3 / 2 + 4, kLabelDpi)) << "right of the square";
    EXPECT_FALSE(label.dark(2 * kLabelDpi, 4 * kLabelDpi)) << "the rest of the label";
  }

  PrinterProcess printer;
  AppProcess app;
};

}  // namespace orvante::testing
