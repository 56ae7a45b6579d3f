#pragma once
// One page of raster lines as PAPPL hands them over (1-bit black, 8-bit
// grey or black, 24-bit colour), collected into an image the label's
// dithering turns into dots.

#include <cstdint>
#include <string>

#include <orvante/image.hpp>

namespace orvante::app {

enum class LineFormat { Black1, Grey8, Black8, Rgb24 };

class PageRaster {
 public:
  // The page's lines are `width` pixels; only the top-left crop of
  // cropWidth x cropHeight (the label) is kept. Throws std::invalid_argument
  // for a format it does not take or a page over the pixel budget.
  PageRaster(int width, int height, LineFormat format, int cropWidth, int cropHeight);

  void setLine(int y, const unsigned char* line);
  Image image() const;

  int width() const { return width_; }
  int height() const { return height_; }

 private:
  int width_;
  int height_;
  LineFormat format_;
  Bytes rgba_;
};

// The line format of a raster header's bits per pixel and colour space
// (CUPS numbering); empty text when it is taken, otherwise why not.
std::string lineFormatOf(unsigned bitsPerPixel, unsigned colorSpace, LineFormat& format);

}  // namespace orvante::app
