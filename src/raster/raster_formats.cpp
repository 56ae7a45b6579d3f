#include "raster_formats.hpp"

#include <algorithm>
#include <string>

#include "../commands/text_encoding.hpp"

namespace orvante::raster {

PaddedRaster thresholdRaster(const Image& image, bool whiteFill, double threshold) {
  PaddedRaster raster;
  const int width = image.pixelWidth();
  const int height = image.pixelHeight();
  raster.bytesPerRow = (width + 7) / 8;
  raster.rows = height;
  raster.bytes.assign(static_cast<std::size_t>(raster.bytesPerRow) * height, 0);
  const std::uint8_t* pixel = image.rgba().data();
  std::uint8_t* out = raster.bytes.data();
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < raster.bytesPerRow * 8; ++x) {
      bool light = true;  // the padding of a row's last byte
      if (x < width) {
        // Over opaque white, a premultiplied colour gains what its alpha lacks.
        const int lift = whiteFill ? 255 - pixel[3] : 0;
        auto channel = [&](int c) {
          return static_cast<std::uint8_t>(std::min(255, pixel[c] + lift));
        };
        light = grey(channel(0), channel(1), channel(2)) >= threshold;
        pixel += 4;
      }
      out[x / 8] = static_cast<std::uint8_t>((out[x / 8] << 1) | (light ? 1 : 0));
    }
    out += raster.bytesPerRow;
  }
  return raster;
}

Bytes alphaRaster(const Image& image) {
  const std::size_t size = static_cast<std::size_t>(image.pixelWidth() / 8) *
                           static_cast<std::size_t>(image.pixelHeight());
  Bytes bits(size, 0);
  const std::size_t pixels =
      std::min(static_cast<std::size_t>(image.pixelWidth()) * image.pixelHeight(), size * 8);
  const std::uint8_t* rgba = image.rgba().data();
  for (std::size_t i = 0; i < pixels; ++i) {
    if (rgba[i * 4 + 3] == 0) bits[i / 8] |= static_cast<std::uint8_t>(0x80 >> (i % 8));
  }
  return bits;
}

Bytes packetHeader(std::int32_t x, std::int32_t y, std::int32_t bytesPerRow, std::int32_t rows) {
  Bytes header{0x21, 0x53};
  for (std::int32_t field : {x, y, bytesPerRow, rows}) {
    header.push_back(static_cast<std::uint8_t>(field % 256));
    header.push_back(static_cast<std::uint8_t>(field / 256));
  }
  header.resize(16, 0);
  return header;
}

std::string bitmapCommandText(std::int32_t x, std::int32_t y, std::int32_t bytesPerRow,
                              std::int32_t rows) {
  return "BITMAP " + std::to_string(x) + "," + std::to_string(y) + "," +
         std::to_string(bytesPerRow) + "," + std::to_string(rows) + ",2,";
}

Bytes bitmapCommand(std::int32_t x, std::int32_t y, std::int32_t bytesPerRow, std::int32_t rows,
                    ByteView raster) {
  Bytes command = encode(bitmapCommandText(x, y, bytesPerRow, rows), TextEncoding::MacRoman);
  command.insert(command.end(), raster.begin(), raster.end());
  command.push_back('\r');
  command.push_back('\n');
  return command;
}

}  // namespace orvante::raster
