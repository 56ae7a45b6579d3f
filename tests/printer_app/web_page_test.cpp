// The application's web pages in a real browser: headless Chromium takes a
// screenshot of the printer's page and reads the defaults page.

#include <gmock/gmock.h>

#include <cstdlib>

#include "app_fixture.hpp"

namespace orvante::testing {
namespace {

using ::testing::HasSubstr;

const char* const kChromium = "/usr/bin/chromium";

// Chromium, headless, without reaching for any network but the loopback.
CommandResult chromium(const fs::path& profile, const std::string& what, const std::string& url) {
  return run(std::string(kChromium) +
             " --headless --no-sandbox --disable-gpu --disable-quic --no-first-run"
             " --disable-background-networking --disable-component-update --disable-sync"
             " --window-size=1024,900 --user-data-dir=" + profile.string() + " " + what + " " +
             url + " 2>/dev/null");
}

TEST_F(PrinterAppTest, ThePrintersWebPageShowsItAndItsLabelDefaults) {
  if (!fs::exists(kChromium)) GTEST_SKIP() << "no Chromium";
  const auto page = app.folder() / "printer-page.png";
  const std::string base = "http://127.0.0.1:" + std::to_string(app.port());
  chromium(app.folder() / "chrome-shot", "--screenshot=" + page.string(), base + "/label");
  ASSERT_TRUE(fs::exists(page)) << app.log();
  const auto shot = readLabel(page);  // any PNG reads as a picture
  EXPECT_EQ(shot.width, 1024);
  std::size_t ink = 0;
  for (int y = 0; y < shot.height; ++y)
    for (int x = 0; x < shot.width; ++x) ink += shot.dark(x, y);
  EXPECT_GT(ink, 1000u) << "the page is blank";

  const auto defaults = chromium(app.folder() / "chrome-dom", "--dump-dom", base + "/label/printing");
  EXPECT_THAT(defaults.output, HasSubstr("Darkness"));
  EXPECT_THAT(defaults.output, HasSubstr("dither"));
  EXPECT_THAT(defaults.output, HasSubstr("print-speed"));
}

}  // namespace
}  // namespace orvante::testing
