// Dithering, checked on dots: tone is kept, ramps rise, hard edges stay
// exact.

#include <gtest/gtest.h>

#include <cmath>

#include "raster/dither.hpp"
#include "raster/raster_formats.hpp"

using namespace orvante;

namespace {

Image greys(int width, int height, const std::function<std::uint8_t(int x, int y)>& grey) {
  Bytes rgba(static_cast<std::size_t>(width) * height * 4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      auto* p = &rgba[(static_cast<std::size_t>(y) * width + x) * 4];
      p[0] = p[1] = p[2] = grey(x, y);
      p[3] = 255;
    }
  }
  return Image(width, height, std::move(rgba));
}

bool dark(const raster::PaddedRaster& raster, int x, int y) {
  return !(raster.bytes[static_cast<std::size_t>(y) * raster.bytesPerRow + x / 8] &
           (0x80 >> (x % 8)));
}

double darkShare(const raster::PaddedRaster& raster, int x0, int x1, int height) {
  int count = 0;
  for (int y = 0; y < height; ++y)
    for (int x = x0; x < x1; ++x) count += dark(raster, x, y);
  return static_cast<double>(count) / ((x1 - x0) * height);
}

const Dither kShading[] = {Dither::FloydSteinberg, Dither::Atkinson, Dither::Ordered4x4,
                           Dither::Ordered8x8, Dither::EdgeAware};

}  // namespace

TEST(Dither, AGreyRampGetsDarkerStepByStep) {
  const Image ramp = greys(256, 32, [](int x, int) { return static_cast<std::uint8_t>(255 - x); });
  for (Dither mode : kShading) {
    const auto raster = raster::ditheredRaster(ramp, mode);
    double previous = -1;
    for (int band = 0; band < 256; band += 32) {
      const double share = darkShare(raster, band, band + 32, 32);
      EXPECT_GE(share, previous) << "mode " << static_cast<int>(mode) << " band " << band;
      previous = share;
    }
    EXPECT_LT(darkShare(raster, 0, 32, 32), 0.15);
    EXPECT_GT(darkShare(raster, 224, 256, 32), 0.85);
  }
}

TEST(Dither, ErrorDiffusionKeepsTheToneOfAFlatPatch) {
  // Atkinson drops a quarter of the error, which steepens the light and
  // dark tones; at mid grey both modes keep the tone.
  const std::pair<Dither, std::uint8_t> cases[] = {{Dither::FloydSteinberg, 64},
                                                   {Dither::FloydSteinberg, 128},
                                                   {Dither::FloydSteinberg, 191},
                                                   {Dither::Atkinson, 128}};
  for (auto [mode, level] : cases) {
    const Image patch = greys(128, 128, [&](int, int) { return level; });
    EXPECT_NEAR(darkShare(raster::ditheredRaster(patch, mode), 0, 128, 128), 1.0 - level / 255.0,
                0.04)
        << "mode " << static_cast<int>(mode) << " grey " << int(level);
  }
  // Plain thresholding turns the same mid grey into a blob.
  const Image mid = greys(64, 64, [](int, int) { return std::uint8_t{100}; });
  EXPECT_EQ(darkShare(raster::ditheredRaster(mid, Dither::Threshold), 0, 64, 64), 1.0);
}

TEST(Dither, EdgeAwareKeepsABarcodeExactInsideAPhoto) {
  // Bars of 2 and 3 dots in pure black on white, beside a soft gradient.
  auto bar = [](int x) { return x % 5 < 2; };
  const Image label = greys(160, 40, [&](int x, int y) -> std::uint8_t {
    if (x < 80) return bar(x) ? 0 : 255;
    return static_cast<std::uint8_t>(60 + (x - 80) + y);
  });
  const auto raster = raster::ditheredRaster(label, Dither::EdgeAware);
  for (int y = 0; y < 40; ++y) {
    for (int x = 0; x < 79; ++x) ASSERT_EQ(dark(raster, x, y), bar(x)) << x << "," << y;
  }
  // The shaded side is dithered, neither blank nor solid.
  const double share = darkShare(raster, 84, 160, 40);
  EXPECT_GT(share, 0.2);
  EXPECT_LT(share, 0.8);
}

TEST(Threshold, EveryPixelOfAGroupOfEightIsWeighedAsOneAlone) {
  // Colours on both sides of the boundary, and premultiplied pixels that
  // the white fill lifts, eight to a byte and one over.
  const std::uint8_t colours[][4] = {{4, 210, 31, 255},   {128, 128, 128, 255}, {255, 255, 255, 255},
                                     {0, 0, 0, 255},      {0, 0, 0, 0},         {60, 60, 60, 128},
                                     {127, 128, 129, 200}, {200, 10, 90, 255},  {3, 250, 40, 7}};
  const int width = 17, height = 9;
  Bytes rgba(static_cast<std::size_t>(width) * height * 4);
  for (int i = 0; i < width * height; ++i) std::copy_n(colours[(i * 7) % 9], 4, &rgba[i * 4]);
  const Image image(width, height, Bytes(rgba));
  for (const bool fill : {true, false}) {
    for (const double threshold : {128.0, 100.5, 0.0}) {
      const auto raster = raster::thresholdRaster(image, fill, threshold);
      for (int i = 0; i < width * height; ++i) {
        const std::uint8_t* p = &rgba[i * 4];
        const int lift = fill ? 255 - p[3] : 0;
        auto channel = [&](int c) { return std::min(255, p[c] + lift); };
        const bool light = channel(0) * 0.299 + channel(1) * 0.587 + channel(2) * 0.114 >= threshold;
        EXPECT_EQ(!dark(raster, i % width, i / width), light) << i << " " << fill << " " << threshold;
      }
    }
  }
}
