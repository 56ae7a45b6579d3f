// Label layout and print: the builders of size, media, clear, barcode,
// printer-font text, print, form feed and tear-off lines.

#include <orvante/commands.hpp>
#include "../commands/text_encoding.hpp"
#include "internals.hpp"
#include "session_ops.hpp"

using orvante::Encoding;
using V = orvante::Value;

namespace orvante {

// How one builder sends its text.
struct LayoutRule {
  Encoding encoding;
  // The result after a BLE send: setup, clear, barcode and printer-font
  // text report -1 although their bytes went out.
  std::int64_t bleResult;
  // Whether the text is kept in commandbuffer on the accessory and BLE links.
  bool keepsText;
};

}  // namespace orvante

namespace {

constexpr orvante::LayoutRule kSetup{Encoding::Big5Hkscs, -1, true};
constexpr orvante::LayoutRule kClear{Encoding::Big5Hkscs, -1, false};
constexpr orvante::LayoutRule kBarcode{Encoding::Big5Hkscs, -1, true};
constexpr orvante::LayoutRule kTextUtf8{Encoding::Utf8, -1, true};
constexpr orvante::LayoutRule kTextGb18030{Encoding::Gb18030, -1, true};
constexpr orvante::LayoutRule kTextBig5{Encoding::Big5, -1, true};
constexpr orvante::LayoutRule kPrint{Encoding::Big5Hkscs, 1, true};
constexpr orvante::LayoutRule kFeed{Encoding::Big5Hkscs, 1, false};

using orvante::commands::barcodeLine;
using orvante::commands::printLine;
using orvante::commands::setupLines;
using orvante::commands::textLine;
// The session places its arguments as they stand.
constexpr auto kAsGiven = orvante::commands::Placement::AsGiven;

}  // namespace

Link SessionOps::sendBuilderBytes(ORVANTESDK& s, orvante::ByteView bytes) {
  const auto link = SessionOps::currentLink(s);
  switch (link) {
    case Link::Tcp:
      s._printWithStream(s.oStream.load(), bytes);
      break;
    case Link::Accessory:
      s._printWithStream(SessionOps::accessoryOutput(s), bytes);
      break;
    case Link::Ble:
      s.BLE_OutStream(bytes);
      break;
    case Link::None:
      break;
  }
  return link;
}

std::int64_t SessionOps::sendLayout(ORVANTESDK& s, const std::string& text,
                                    const orvante::LayoutRule& rule, std::optional<double> delay) {
  if (delay) s.pause(*delay);
  const auto link = SessionOps::currentLink(s);
  if ((link == Link::Accessory || link == Link::Ble) && rule.keepsText) s.commandbuffer = text;
  switch (SessionOps::sendBuilderBytes(s, orvante::encode(text, rule.encoding))) {
    case Link::Tcp:
    case Link::Accessory:
      return 1;
    case Link::Ble:
      return rule.bleResult;
    case Link::None:
      break;
  }
  return -1;
}

std::int64_t ORVANTESDK::setup(const V& width, const V& height, const V& speed, const V& density,
                               const V& sensor, const V& vertical, const V& offset) {
  return SessionOps::sendLayout(
      *this, setupLines(width, height, speed, density, sensor, vertical, offset, kAsGiven), kSetup,
      std::nullopt);
}

std::int64_t ORVANTESDK::setupForWidth(const V& width, const V& height, const V& speed,
                                       const V& density, const V& sensor, const V& vertical,
                                       const V& offset, double delay) {
  return SessionOps::sendLayout(
      *this, setupLines(width, height, speed, density, sensor, vertical, offset, kAsGiven), kSetup,
      delay);
}

std::int64_t ORVANTESDK::clearbuffer() {
  return SessionOps::sendLayout(*this, std::string(orvante::commands::kClearLine), kClear,
                                std::nullopt);
}

std::int64_t ORVANTESDK::clearBuffer(double delay) {
  return SessionOps::sendLayout(*this, std::string(orvante::commands::kClearLine), kClear, delay);
}

std::int64_t ORVANTESDK::barcode(const V& x, const V& y, const V& barcodeType, const V& height,
                                 const V& readable, const V& rotation, const V& narrow,
                                 const V& wide, const V& code) {
  return SessionOps::sendLayout(
      *this,
      barcodeLine(x, y, barcodeType, height, readable, rotation, narrow, wide, code, kAsGiven),
      kBarcode, std::nullopt);
}

std::int64_t ORVANTESDK::barcodeFromX(const V& x, const V& y, const V& barcodeType, const V& height,
                                      const V& readable, const V& rotation, const V& narrow,
                                      const V& wide, const V& code, double delay) {
  return SessionOps::sendLayout(
      *this,
      barcodeLine(x, y, barcodeType, height, readable, rotation, narrow, wide, code, kAsGiven),
      kBarcode, delay);
}

std::int64_t ORVANTESDK::printerfont(const V& x, const V& y, const V& fontName, const V& rotation,
                                     const V& magnificationRateX, const V& magnificationRateY,
                                     const V& content) {
  return SessionOps::sendLayout(
      *this,
      textLine(x, y, fontName, rotation, magnificationRateX, magnificationRateY, content, kAsGiven),
      kTextUtf8, std::nullopt);
}

std::int64_t ORVANTESDK::printerfontFromX(const V& x, const V& y, const V& fontName,
                                          const V& rotation, const V& magnificationRateX,
                                          const V& magnificationRateY, const V& content,
                                          double delay) {
  return SessionOps::sendLayout(
      *this,
      textLine(x, y, fontName, rotation, magnificationRateX, magnificationRateY, content, kAsGiven),
      kTextUtf8, delay);
}

std::int64_t ORVANTESDK::printerfont_GB2321(const V& x, const V& y, const V& fontName,
                                            const V& rotation, const V& magnificationRateX,
                                            const V& magnificationRateY, const V& content) {
  return SessionOps::sendLayout(
      *this,
      textLine(x, y, fontName, rotation, magnificationRateX, magnificationRateY, content, kAsGiven),
      kTextGb18030, std::nullopt);
}

std::int64_t ORVANTESDK::printerfont_GB2321(const V& x, const V& y, const V& fontName,
                                            const V& rotation, const V& magnificationRateX,
                                            const V& magnificationRateY, const V& content,
                                            double delay) {
  return SessionOps::sendLayout(
      *this,
      textLine(x, y, fontName, rotation, magnificationRateX, magnificationRateY, content, kAsGiven),
      kTextGb18030, delay);
}

std::int64_t ORVANTESDK::printerfont_BIG5(const V& x, const V& y, const V& fontName,
                                          const V& rotation, const V& magnificationRateX,
                                          const V& magnificationRateY, const V& content) {
  return SessionOps::sendLayout(
      *this,
      textLine(x, y, fontName, rotation, magnificationRateX, magnificationRateY, content, kAsGiven),
      kTextBig5, std::nullopt);
}

std::int64_t ORVANTESDK::printerfont_BIG5(const V& x, const V& y, const V& fontName,
                                          const V& rotation, const V& magnificationRateX,
                                          const V& magnificationRateY, const V& content,
                                          double delay) {
  return SessionOps::sendLayout(
      *this,
      textLine(x, y, fontName, rotation, magnificationRateX, magnificationRateY, content, kAsGiven),
      kTextBig5, delay);
}

std::int64_t ORVANTESDK::printerfont_UTF8(const V& x, const V& y, const V& fontName,
                                          const V& rotation, const V& magnificationRateX,
                                          const V& magnificationRateY, const V& content) {
  return printerfont(x, y, fontName, rotation, magnificationRateX, magnificationRateY, content);
}

std::int64_t ORVANTESDK::printerfont_UTF8(const V& x, const V& y, const V& fontName,
                                          const V& rotation, const V& magnificationRateX,
                                          const V& magnificationRateY, const V& content,
                                          double delay) {
  return printerfontFromX(x, y, fontName, rotation, magnificationRateX, magnificationRateY, content,
                          delay);
}

std::int64_t ORVANTESDK::printlabel(const V& sets, const V& copies) {
  return SessionOps::sendLayout(*this, printLine(sets, copies, kAsGiven), kPrint, std::nullopt);
}

std::int64_t ORVANTESDK::printLabelWithNumberOfSets(const V& sets, const V& copies, double delay) {
  return SessionOps::sendLayout(*this, printLine(sets, copies, kAsGiven), kPrint, delay);
}

std::int64_t ORVANTESDK::formfeed() {
  return SessionOps::sendLayout(*this, std::string(orvante::commands::kFormFeedLine), kFeed,
                                std::nullopt);
}

std::int64_t ORVANTESDK::formfeed(double delay) {
  return SessionOps::sendLayout(*this, std::string(orvante::commands::kFormFeedLine), kFeed, delay);
}

std::int64_t ORVANTESDK::nobackfeed() {
  return SessionOps::sendLayout(*this, std::string(orvante::commands::kTearOffLine), kFeed,
                                std::nullopt);
}

std::int64_t ORVANTESDK::nobackfeed(double delay) {
  return SessionOps::sendLayout(*this, std::string(orvante::commands::kTearOffLine), kFeed, delay);
}
