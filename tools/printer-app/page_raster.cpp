#include "page_raster.hpp"

#include <algorithm>
#include <stdexcept>

#include <cups/raster.h>

namespace orvante::app {

PageRaster::PageRaster(int width, int height, LineFormat format, int cropWidth, int cropHeight)
    : width_(std::min(width, cropWidth)), height_(std::min(height, cropHeight)), format_(format) {
  if (width_ <= 0 || height_ <= 0) throw std::invalid_argument("the page has no pixels");
  if (static_cast<long long>(width_) * height_ > kMaxRenderedPixels) {
    throw std::invalid_argument("the page of " + std::to_string(width_) + " x " +
                                std::to_string(height_) + " pixels is too large to print");
  }
  // White until a line says otherwise: lines PAPPL never sends stay blank.
  rgba_.assign(static_cast<std::size_t>(width_) * height_ * 4, 0xFF);
}

void PageRaster::setLine(int y, const unsigned char* line) {
  if (y < 0 || y >= height_) return;
  std::uint8_t* out = rgba_.data() + static_cast<std::size_t>(y) * width_ * 4;
  for (int x = 0; x < width_; ++x, out += 4) {
    switch (format_) {
      case LineFormat::Black1: {
        const bool dark = line[x / 8] & (0x80 >> (x % 8));
        out[0] = out[1] = out[2] = dark ? 0 : 255;
        break;
      }
      case LineFormat::Grey8:
        out[0] = out[1] = out[2] = line[x];
        break;
      case LineFormat::Black8:
        out[0] = out[1] = out[2] = static_cast<std::uint8_t>(255 - line[x]);
        break;
      case LineFormat::Rgb24:
        out[0] = line[3 * x];
        out[1] = line[3 * x + 1];
        out[2] = line[3 * x + 2];
        break;
    }
  }
}

Image PageRaster::image() const {
  return Image(width_, height_, rgba_);
}

std::string lineFormatOf(unsigned bitsPerPixel, unsigned colorSpace, LineFormat& format) {
  const bool blackSpace = colorSpace == CUPS_CSPACE_K;
  const bool greySpace = colorSpace == CUPS_CSPACE_SW || colorSpace == CUPS_CSPACE_W;
  const bool rgbSpace = colorSpace == CUPS_CSPACE_SRGB || colorSpace == CUPS_CSPACE_RGB ||
                        colorSpace == CUPS_CSPACE_ADOBERGB;
  if (bitsPerPixel == 1 && blackSpace) {
    format = LineFormat::Black1;
  } else if (bitsPerPixel == 8 && greySpace) {
    format = LineFormat::Grey8;
  } else if (bitsPerPixel == 8 && blackSpace) {
    format = LineFormat::Black8;
  } else if (bitsPerPixel == 24 && rgbSpace) {
    format = LineFormat::Rgb24;
  } else {
    return "raster pages of " + std::to_string(bitsPerPixel) + " bits per pixel in colour space " +
           std::to_string(colorSpace) + " are not printed";
  }
  return {};
}

}  // namespace orvante::app
