// The render tests see only the fixture's fonts: fontconfig reads
// FONTCONFIG_FILE once, at its first use, so it is set before main.

#include <cstdlib>

namespace {

const bool kFixtureFonts = [] {
  setenv("FONTCONFIG_FILE", ORVANTE_TEST_FONTS_CONF, 1);
  return true;
}();

}  // namespace
