#pragma once
// The one-bit rasters and the two formats that carry them to the printer.
// A bit is 1 for a light (unprinted) dot and 0 for a dark one, the most
// significant bit leftmost.

#include <cstdint>
#include <string>

#include <orvante/image.hpp>

namespace orvante::raster {

// The padded raster: each row starts on a new byte; the unused low bits of
// a row's last byte are 1. A pixel is light when its grey is at least the
// threshold. With the white fill, transparency counts as white; without
// it, as black.
struct PaddedRaster {
  Bytes bytes;
  std::int32_t bytesPerRow = 0;
  std::int32_t rows = 0;
};
PaddedRaster thresholdRaster(const Image& image, bool whiteFill, double threshold);

// The grey of a pixel's (premultiplied) colour, as the packer weighs it.
inline double grey(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
  return r * 0.299 + g * 0.587 + b * 0.114;
}

// The alpha raster: 0 where something was drawn (alpha not 0), bits running
// on from row to row with no padding, (width / 8) x height bytes. A width
// that is not a multiple of 8 fills the buffer and stops there.
Bytes alphaRaster(const Image& image);

// The 16-byte header of the compressed bitmap packet: "!S", then x, y,
// bytes per row and rows as 16-bit little-endian fields, then six zeros.
Bytes packetHeader(std::int32_t x, std::int32_t y, std::int32_t bytesPerRow, std::int32_t rows);

// The text that opens the uncompressed command:
// "BITMAP x,y,bytesPerRow,rows,2,".
std::string bitmapCommandText(std::int32_t x, std::int32_t y, std::int32_t bytesPerRow,
                              std::int32_t rows);

// The uncompressed command: that text, then the raster, then CR LF.
Bytes bitmapCommand(std::int32_t x, std::int32_t y, std::int32_t bytesPerRow, std::int32_t rows,
                    ByteView raster);

}  // namespace orvante::raster
