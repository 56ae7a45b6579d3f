// Images to the printer: scaling, black-and-white conversion, the alpha
// raster, and the compressed bitmap packet of SendPic and its kin.

#include <orvante/lzss.h>

#include <cmath>
#include <mutex>

#include "../raster/cairo_image.hpp"
#include "../raster/raster_formats.hpp"
#include "failure_report.hpp"
#include "internals.hpp"
#include "session_ops.hpp"

using orvante::Bytes;
using orvante::ByteView;
using orvante::Image;
using orvante::reportFailure;

namespace {

constexpr double kPrintThreshold = 128.0;
const char kPrintOne[] = "\r\nPRINT 1\r\n";

}  // namespace

Bytes SessionOps::compressRaster(ORVANTESDK& s, ByteView raster) {
  std::lock_guard lock(s.internals_->encoderLock);
  const unsigned char* compressed =
      LZSSEncoding(raster.data(), static_cast<std::int32_t>(raster.size()));
  return Bytes(compressed, compressed + GetEncodeDataSize());
}

void SessionOps::sendPicture(ORVANTESDK& s, const Image& image, std::int32_t x, std::int32_t y,
                             bool whiteFill, double threshold) {
  const auto raster = orvante::raster::thresholdRaster(image, whiteFill, threshold);
  Bytes packet = orvante::raster::packetHeader(x, y, raster.bytesPerRow, raster.rows);
  const Bytes compressed = SessionOps::compressRaster(s, raster.bytes);
  packet.insert(packet.end(), compressed.begin(), compressed.end());
  SessionOps::sendBuilderBytes(s, packet);
}

void ORVANTESDK::SendPic(const Image& image, std::int32_t x, std::int32_t y) {
  SessionOps::sendPicture(*this, image, x, y, true, kPrintThreshold);
  sendcommand(kPrintOne);
}

void ORVANTESDK::SendPic_NotPrint(const Image& image, std::int32_t x, std::int32_t y,
                                  std::int32_t threshold) {
  SessionOps::sendPicture(*this, image, x, y, false, static_cast<double>(threshold));
}

Bytes ORVANTESDK::fnBitsFromImage(const Image& image) {
  return orvante::raster::alphaRaster(image);
}

// Each pixel turns white when its mean colour, as a fraction of 255, is
// strictly above the density, and black otherwise; alpha is kept.
Image ORVANTESDK::CovertToBlackAndWhiteScale(const Image& image, const orvante::Value& density) {
  const orvante::Size points = image.size();
  const int width = orvante::raster::pixelsOf(points.width);
  const int height = orvante::raster::pixelsOf(points.height);
  Image drawn = orvante::raster::drawImage(width, height, [&](cairo_t* context) {
    orvante::raster::drawStretched(context, image, width, height);
  });
  if (drawn.empty()) return drawn;
  Bytes rgba = drawn.rgba();
  const double limit = static_cast<double>(density.floatValue());
  for (std::size_t i = 0; i < rgba.size(); i += 4) {
    const double value = (rgba[i] + rgba[i + 1] + rgba[i + 2]) / 3.0 / 255.0;
    const std::uint8_t tone = value > limit ? 255 : 0;
    rgba[i] = rgba[i + 1] = rgba[i + 2] = tone;
  }
  return Image(width, height, std::move(rgba));
}

Image ORVANTESDK::scaleToSize(const Image& image, orvante::Size size) {
  const int width = orvante::raster::pixelsOf(std::ceil(size.width));
  const int height = orvante::raster::pixelsOf(std::ceil(size.height));
  // Past the pixel budget the drawing context, like one of a size that is
  // not a number, yields no image.
  if (width > orvante::kMaxRenderedSide || height > orvante::kMaxRenderedSide ||
      static_cast<long long>(width) * height > orvante::kMaxRenderedPixels) {
    return {};
  }
  return orvante::raster::drawImage(width, height, [&](cairo_t* context) {
    orvante::raster::drawStretched(context, image, size.width, size.height);
  });
}

std::int64_t ORVANTESDK::sendImagebyPath(const std::string& path, std::int32_t x, std::int32_t y,
                                         std::int32_t width, std::int32_t height,
                                         std::int32_t threshold) {
  try {
    // A file that is missing or no image gives no image; scaled, that is a
    // transparent rectangle, which this packer reads as dark.
    return sendImagebyFile(Image::fromFile(path), x, y, width, height, threshold);
  } catch (const std::exception& failure) {
    return reportFailure(failure);
  }
}

std::int64_t ORVANTESDK::sendImagebyFile(const Image& image, std::int32_t x, std::int32_t y,
                                         std::int32_t width, std::int32_t height,
                                         std::int32_t threshold) {
  try {
    const Image scaled =
        scaleToSize(image, {static_cast<double>(width), static_cast<double>(height)});
    SendPic_NotPrint(scaled, x, y, threshold);
    return 1;
  } catch (const std::exception& failure) {
    return reportFailure(failure);
  }
}
