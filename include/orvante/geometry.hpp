#pragma once
// Sizes, rectangles and angles as the rendered-text operations take them.

#include <orvante/export.hpp>
#include <orvante/image.hpp>

ORVANTE_API_BEGIN

namespace orvante {

struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
};

inline Size CGSizeMake(double width, double height) { return {width, height}; }

inline Rect CGRectMake(double x, double y, double width, double height) {
  return {x, y, width, height};
}

// Degrees to radians: multiplied first, then divided, so results match the
// published rounding bit for bit.
inline double radians(double degrees) { return degrees * 3.141592653589793 / 180; }

}  // namespace orvante

ORVANTE_API_END
