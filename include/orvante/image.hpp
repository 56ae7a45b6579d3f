#pragma once
// Images as the raster operations take them: premultiplied RGBA pixels,
// top row first, with a size in points (pixels divided by the scale).

#include <cstdint>
#include <string>

#include <orvante/bytes.hpp>
#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

struct Size {
  double width = 0;
  double height = 0;
};

// The largest image the library decodes or draws itself (an image file, a
// line of text in a system font, a PDF page): 100 megapixels, more than a
// 4 x 6 inch label at 600 dpi needs ten times over, and no side above 32767
// pixels, the drawing library's limit. Larger images are refused before
// their pixels are allocated: decoding gives the empty image, an operation
// that would draw one fails with -1 and logs why.
inline constexpr long long kMaxRenderedPixels = 100'000'000;
inline constexpr int kMaxRenderedSide = 32767;

class Image {
 public:
  // The empty image stands for a missing one.
  Image() = default;
  // rgba holds 4 x width x height bytes: R, G, B, A per pixel, colours
  // premultiplied by alpha. Throws std::invalid_argument on a size mismatch.
  Image(int width, int height, Bytes rgba, double scale = 1);

  // A fully transparent image.
  static Image transparent(int width, int height);
  // Decodes PNG, JPEG, GIF (its first frame) and BMP; the empty image when
  // the file cannot be read or decoded, is truncated, is in another format,
  // or has more than kMaxRenderedPixels pixels (read from its header, before
  // decoding).
  static Image fromFile(const std::string& path);
  static Image fromData(ByteView bytes);

  bool empty() const { return width_ == 0 || height_ == 0; }
  int pixelWidth() const { return width_; }
  int pixelHeight() const { return height_; }
  double scale() const { return scale_; }
  Size size() const { return {width_ / scale_, height_ / scale_}; }
  const Bytes& rgba() const { return rgba_; }

  // The image stretched to exactly width x height pixels (the aspect ratio
  // is the caller's), smoothly; the empty image for a size that is not
  // positive or past kMaxRenderedPixels.
  Image scaled(int width, int height) const;

 private:
  int width_ = 0;
  int height_ = 0;
  double scale_ = 1;
  Bytes rgba_;
};

}  // namespace orvante

ORVANTE_API_END
