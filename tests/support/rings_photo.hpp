#pragma once
// A grey photo for the encoders' tests and benchmarks: rings from the
// middle, `ringWidth` dots apart, fading out towards the left edge.
// Dithered, most of its positions repeat nothing; public headers only.

#include <cmath>
#include <cstdint>
#include <utility>

#include <orvante/image.hpp>

namespace orvante::testing {

inline Image ringsPhoto(int width, int height, double ringWidth = 18) {
  Bytes rgba(static_cast<std::size_t>(width) * height * 4, 255);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double ring = std::sin(std::hypot(x - width / 2.0, y - height / 2.0) / ringWidth);
      const auto grey = static_cast<std::uint8_t>(127 + 100 * ring * (x / double(width)));
      auto* p = &rgba[(static_cast<std::size_t>(y) * width + x) * 4];
      p[0] = p[1] = p[2] = grey;
    }
  }
  return Image(width, height, std::move(rgba));
}

}  // namespace orvante::testing
