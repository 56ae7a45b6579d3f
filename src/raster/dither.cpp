#include "dither.hpp"

#include <algorithm>
#include <array>
#include <vector>

namespace orvante::raster {
namespace {

// Greys over white, one per pixel, weighed as the threshold packer weighs
// them; and which pixels are pure black or white.
struct GreyPlane {
  int width = 0;
  int height = 0;
  std::vector<double> grey;
  std::vector<bool> pure;
};

GreyPlane greysOverWhite(const Image& image) {
  GreyPlane plane{image.pixelWidth(), image.pixelHeight(), {}, {}};
  const std::size_t count = static_cast<std::size_t>(plane.width) * plane.height;
  plane.grey.resize(count);
  plane.pure.resize(count);
  const std::uint8_t* pixel = image.rgba().data();
  for (std::size_t i = 0; i < count; ++i, pixel += 4) {
    const int lift = 255 - pixel[3];
    std::uint8_t c[3];
    for (int k = 0; k < 3; ++k) c[k] = static_cast<std::uint8_t>(std::min(255, pixel[k] + lift));
    plane.grey[i] = grey(c[0], c[1], c[2]);
    plane.pure[i] = c[0] == c[1] && c[1] == c[2] && (c[0] == 0 || c[0] == 255);
  }
  return plane;
}

// Packs light/dark decisions into the padded layout (1 = light).
PaddedRaster pack(int width, int height, const std::vector<bool>& light) {
  PaddedRaster raster;
  raster.bytesPerRow = (width + 7) / 8;
  raster.rows = height;
  raster.bytes.assign(static_cast<std::size_t>(raster.bytesPerRow) * height, 0xFF);
  for (int y = 0; y < height; ++y) {
    std::uint8_t* row = raster.bytes.data() + static_cast<std::size_t>(y) * raster.bytesPerRow;
    for (int x = 0; x < width; ++x) {
      if (!light[static_cast<std::size_t>(y) * width + x]) {
        row[x / 8] = static_cast<std::uint8_t>(row[x / 8] & ~(0x80 >> (x % 8)));
      }
    }
  }
  return raster;
}

struct Spread {
  int dx, dy;
  double share;
};
constexpr std::array<Spread, 4> kFloydSteinberg{
    {{1, 0, 7.0 / 16}, {-1, 1, 3.0 / 16}, {0, 1, 5.0 / 16}, {1, 1, 1.0 / 16}}};
constexpr std::array<Spread, 6> kAtkinson{{{1, 0, 1.0 / 8},
                                           {2, 0, 1.0 / 8},
                                           {-1, 1, 1.0 / 8},
                                           {0, 1, 1.0 / 8},
                                           {1, 1, 1.0 / 8},
                                           {0, 2, 1.0 / 8}}};

// Error diffusion over the pixels `diffused` admits; the others are
// thresholded, and neither give nor take error.
template <std::size_t N>
std::vector<bool> diffuse(GreyPlane& plane, double threshold, const std::array<Spread, N>& spread,
                          const std::vector<bool>& diffused) {
  const int w = plane.width, h = plane.height;
  std::vector<bool> light(plane.grey.size());
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * w + x;
      const double value = plane.grey[i];
      light[i] = value >= threshold;
      if (!diffused[i]) continue;
      const double error = value - (light[i] ? 255.0 : 0.0);
      for (const auto& [dx, dy, share] : spread) {
        const int nx = x + dx, ny = y + dy;
        if (nx < 0 || nx >= w || ny >= h) continue;
        const std::size_t j = static_cast<std::size_t>(ny) * w + nx;
        if (diffused[j]) plane.grey[j] += error * share;
      }
    }
  }
  return light;
}

template <int N>
std::vector<bool> ordered(const GreyPlane& plane) {
  // The Bayer matrix of size N, built from the 2 x 2 one.
  std::array<std::array<int, N>, N> bayer{};
  for (int size = 1; size < N; size *= 2) {
    for (int y = 0; y < size; ++y) {
      for (int x = 0; x < size; ++x) {
        const int base = bayer[y][x] * 4;
        bayer[y][x] = base;
        bayer[y][x + size] = base + 2;
        bayer[y + size][x] = base + 3;
        bayer[y + size][x + size] = base + 1;
      }
    }
  }
  std::vector<bool> light(plane.grey.size());
  for (int y = 0; y < plane.height; ++y) {
    for (int x = 0; x < plane.width; ++x) {
      const double level = (bayer[y % N][x % N] + 0.5) * 255.0 / (N * N);
      const std::size_t i = static_cast<std::size_t>(y) * plane.width + x;
      light[i] = plane.grey[i] >= level;
    }
  }
  return light;
}

// Shaded pixels that touch no pure black or white pixel (8 neighbours).
std::vector<bool> shadedInterior(const GreyPlane& plane) {
  const int w = plane.width, h = plane.height;
  std::vector<bool> shaded(plane.grey.size());
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      bool nearPure = false;
      for (int dy = -1; dy <= 1 && !nearPure; ++dy) {
        for (int dx = -1; dx <= 1 && !nearPure; ++dx) {
          const int nx = x + dx, ny = y + dy;
          if (nx < 0 || ny < 0 || nx >= w || ny >= h) continue;
          nearPure = plane.pure[static_cast<std::size_t>(ny) * w + nx];
        }
      }
      shaded[static_cast<std::size_t>(y) * w + x] = !nearPure;
    }
  }
  return shaded;
}

}  // namespace

PaddedRaster ditheredRaster(const Image& image, Dither mode, double threshold) {
  if (mode == Dither::Threshold) return thresholdRaster(image, true, threshold);
  GreyPlane plane = greysOverWhite(image);
  const std::vector<bool> everywhere(plane.grey.size(), true);
  std::vector<bool> light;
  switch (mode) {
    case Dither::FloydSteinberg:
      light = diffuse(plane, threshold, kFloydSteinberg, everywhere);
      break;
    case Dither::Atkinson:
      light = diffuse(plane, threshold, kAtkinson, everywhere);
      break;
    case Dither::Ordered4x4:
      light = ordered<4>(plane);
      break;
    case Dither::Ordered8x8:
      light = ordered<8>(plane);
      break;
    case Dither::EdgeAware:
      light = diffuse(plane, threshold, kFloydSteinberg, shadedInterior(plane));
      break;
    case Dither::Threshold:
      break;
  }
  return pack(plane.width, plane.height, light);
}

}  // namespace orvante::raster
