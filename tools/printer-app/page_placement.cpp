#include "page_placement.hpp"

#include <algorithm>
#include <cmath>

namespace orvante::app {

PagePlacement placePage(double pageWidthDots, double pageHeightDots, int labelWidth,
                        int labelHeight, pappl_scaling_t scaling) {
  const double across = labelWidth / std::max(pageWidthDots, 1.0);
  const double down = labelHeight / std::max(pageHeightDots, 1.0);
  const bool larger = pageWidthDots > labelWidth || pageHeightDots > labelHeight;
  double scale = 1;
  if (scaling & PAPPL_SCALING_FIT) {
    scale = std::min(across, down);
  } else if (scaling & PAPPL_SCALING_FILL) {
    scale = std::max(across, down);
  } else if (!(scaling & PAPPL_SCALING_NONE) && larger) {
    scale = std::min(across, down);  // auto and auto-fit
  }
  PagePlacement placement;
  placement.width = std::max(1, static_cast<int>(std::lround(pageWidthDots * scale)));
  placement.height = std::max(1, static_cast<int>(std::lround(pageHeightDots * scale)));
  placement.x = (labelWidth - placement.width) / 2;
  placement.y = (labelHeight - placement.height) / 2;
  return placement;
}

VisiblePage visiblePart(const Image& drawn, const PagePlacement& placement, int labelWidth,
                        int labelHeight) {
  const int left = std::max(0, -placement.x), top = std::max(0, -placement.y);
  const int width = std::min(drawn.pixelWidth() - left, labelWidth - std::max(0, placement.x));
  const int height = std::min(drawn.pixelHeight() - top, labelHeight - std::max(0, placement.y));
  if (width <= 0 || height <= 0) return {};
  if (left == 0 && top == 0 && width == drawn.pixelWidth() && height == drawn.pixelHeight()) {
    return {drawn, placement.x, placement.y};
  }
  Bytes rgba(static_cast<std::size_t>(width) * height * 4);
  for (int row = 0; row < height; ++row) {
    const auto from = drawn.rgba().begin() +
                      (static_cast<std::ptrdiff_t>(top + row) * drawn.pixelWidth() + left) * 4;
    std::copy(from, from + static_cast<std::ptrdiff_t>(width) * 4,
              rgba.begin() + static_cast<std::ptrdiff_t>(row) * width * 4);
  }
  return {Image(width, height, std::move(rgba)), std::max(0, placement.x),
          std::max(0, placement.y)};
}

}  // namespace orvante::app
