#include "pixel_budget.hpp"

#include <orvante/exception.hpp>
#include <orvante/image.hpp>

#include <cmath>
#include <string>

namespace orvante::raster {
namespace {

// Not positive (or not a number) means no pixels on that side.
double side(double points) { return points > 0 ? std::ceil(points) : 0; }

}  // namespace

PixelSize budgetedPixels(double width, double height, std::string_view what) {
  const double columns = side(width);
  const double rows = side(height);
  if (columns > kMaxRenderedSide || rows > kMaxRenderedSide ||
      columns * rows > static_cast<double>(kMaxRenderedPixels)) {
    throw Exception("ImageTooLarge", std::string(what) +
                                         " would need more than 100 megapixels or more than "
                                         "32767 pixels on a side");
  }
  return {static_cast<int>(columns), static_cast<int>(rows)};
}

}  // namespace orvante::raster
