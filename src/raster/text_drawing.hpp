#pragma once
// Internal: one line of text in a system font, measured and drawn at scale
// 1, where a point is a pixel and a printer dot.

#include <string>

#include <orvante/image.hpp>

namespace orvante::text {

// A side rounded up to the next multiple of 8 from its whole part:
// 37.6 -> 40, 40.3 -> 40, 39.9 -> 40, 0.5 -> 0.
double padToEight(double side);

// The content drawn as one line in the face (a PostScript name, see
// openFace) at `points`, black and without antialiasing on a transparent
// image whose sides are the line's measured size padded to multiples of 8.
// Characters the face lacks come from another installed font. Empty text,
// or a size that is not positive, gives the empty image. Throws
// orvante::Exception "ImageTooLarge" beyond the pixel budget.
Image drawLine(const std::string& content, const std::string& face, int points);

}  // namespace orvante::text
