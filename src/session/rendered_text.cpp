// Text in an installed font, drawn on the host and sent as a bitmap.

#include <orvante/session.hpp>

#include "../commands/text_encoding.hpp"
#include "../raster/face_choice.hpp"
#include "../raster/fonts.hpp"
#include "../raster/raster_formats.hpp"
#include "../raster/rotation.hpp"
#include "../raster/text_drawing.hpp"
#include "failure_report.hpp"
#include "session_ops.hpp"

using orvante::Bytes;
using orvante::Image;
using orvante::Encoding;

namespace {

constexpr double kTextPause = 0.5;

// The alpha raster of the drawn text and the sizes its formats carry.
struct TextRaster {
  Bytes bits;
  std::int32_t bytesPerRow = 0;
  std::int32_t rows = 0;
};

TextRaster rasterOfText(ORVANTESDK& session, std::int32_t height, std::int32_t rotation,
                        std::int32_t style, std::int32_t withUnderline, const std::string& fontName,
                        const std::string& content) {
  const bool bold = style == 2 || style == 3;
  const bool italic = style == 1 || style == 3;
  const std::string face = session.fnFindFontWithName(fontName, bold, italic);
  const Image image = session.fnDrawString(content, face, height, withUnderline != 0, rotation);
  return {session.fnBitsFromImage(image), image.pixelWidth() / 8, image.pixelHeight()};
}

void append(Bytes& to, const Bytes& bytes) {
  to.insert(to.end(), bytes.begin(), bytes.end());
}

}  // namespace

std::string ORVANTESDK::fnFindFontWithName(const std::string& name, bool bold, bool italic) {
  return orvante::text::chooseFace(name, bold, italic, orvante::text::familyNames(),
                                   orvante::text::faceNames);
}

Image ORVANTESDK::fnDrawString(const std::string& content, const std::string& fontName,
                               std::int32_t size, bool /*underline: never drawn*/,
                               std::int32_t rotation) {
  Image image = orvante::text::drawLine(content, fontName, size);
  if (rotation != 0) image = fnRotateImage(image, static_cast<double>(rotation));
  return image;
}

Image ORVANTESDK::fnRotateImage(const Image& image, double degree) {
  return orvante::raster::rotateImage(image, degree);
}

std::int64_t ORVANTESDK::windowsfont(std::int32_t x, std::int32_t y, std::int32_t height,
                                     std::int32_t rotation, std::int32_t style,
                                     std::int32_t withUnderline, const std::string& fontName,
                                     const std::string& content) {
  TextRaster text;
  try {
    text = rasterOfText(*this, height, rotation, style, withUnderline, fontName, content);
  } catch (const std::exception& failure) {
    return orvante::reportFailure(failure);
  }
  endCRLF = std::string("\r\n");
  Bytes message = orvante::raster::packetHeader(x, y, text.bytesPerRow, text.rows);
  append(message, SessionOps::compressRaster(*this, text.bits));
  append(message, orvante::encode(*endCRLF.load(), Encoding::MacRoman));
  pause(kTextPause);
  return SessionOps::sendBuilderBytes(*this, message) == Link::None ? -1 : 1;
}

std::int64_t ORVANTESDK::windowsfontFromX(std::int32_t x, std::int32_t y, std::int32_t height,
                                          std::int32_t rotation, std::int32_t style,
                                          std::int32_t withUnderline, const std::string& fontName,
                                          const std::string& content, double delay) {
  TextRaster text;
  try {
    text = rasterOfText(*this, height, rotation, style, withUnderline, fontName, content);
  } catch (const std::exception& failure) {
    return orvante::reportFailure(failure);
  }
  end = Bytes{};
  endCRLF = std::string("\r\n");
  commandbuffer = orvante::raster::bitmapCommandText(x, y, text.bytesPerRow, text.rows);
  _writeData = orvante::encode(*commandbuffer.load(), Encoding::MacRoman);
  end = orvante::encode(*endCRLF.load(), Encoding::MacRoman);
  Bytes message = *_writeData.load();
  append(message, text.bits);
  append(message, *end.load());
  pause(delay);
  return SessionOps::sendBuilderBytes(*this, message) == Link::None ? -1 : 1;
}
