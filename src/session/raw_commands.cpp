// Raw commands: any text in one of four encodings, or raw bytes, sent by the
// link rule. Only sendcommand: checks the stream status first, and only
// sendcommand:delay: pauses; the other delay twins ignore their delay.

#include "../commands/text_encoding.hpp"
#include "internals.hpp"
#include "session_ops.hpp"

using orvante::ByteView;
using orvante::Encoding;

std::int64_t SessionOps::sendRawText(ORVANTESDK& s, ByteView bytes) {
  switch (SessionOps::currentLink(s)) {
    case Link::Tcp:
      s._printWithStream(s.oStream.load(), bytes);
      return 1;
    case Link::Accessory:
      s.MFI_OutStream(bytes);
      return 1;
    case Link::Ble:
      s.BLE_OutStream(bytes);
      return 1;
    case Link::None:
      break;
  }
  return -1;
}

std::int64_t ORVANTESDK::sendcommand(const std::string& text) {
  if (stream_status() == -1) return -1;
  return SessionOps::sendRawText(*this, orvante::encode(text, Encoding::Utf8));
}

std::int64_t ORVANTESDK::sendcommand(const std::string& text, std::uint64_t delay) {
  pause(static_cast<double>(delay));
  return SessionOps::sendRawText(*this, orvante::encode(text, Encoding::Utf8));
}

std::int64_t ORVANTESDK::sendcommand_utf8(const std::string& text) {
  return SessionOps::sendRawText(*this, orvante::encode(text, Encoding::Utf8));
}

std::int64_t ORVANTESDK::sendcommand_utf8(const std::string& text, std::uint64_t) {
  return sendcommand_utf8(text);
}

std::int64_t ORVANTESDK::sendcommand_gb2312(const std::string& text) {
  return SessionOps::sendRawText(*this, orvante::encode(text, Encoding::Gb18030));
}

std::int64_t ORVANTESDK::sendcommand_gb2312(const std::string& text, std::uint64_t) {
  return sendcommand_gb2312(text);
}

std::int64_t ORVANTESDK::sendcommand_big5(const std::string& text) {
  return SessionOps::sendRawText(*this, orvante::encode(text, Encoding::Big5));
}

std::int64_t ORVANTESDK::sendcommand_big5(const std::string& text, std::uint64_t) {
  return sendcommand_big5(text);
}

// On TCP the bytes go to the stream in one write, with no chunking and no
// wait for the open status; the stream takes what it takes.
std::int64_t ORVANTESDK::sendcommandWithData(ByteView data) {
  if (SessionOps::currentLink(*this) == Link::Tcp) {
    if (auto output = oStream.load()) output->write(data.data(), data.size());
    return 1;
  }
  return SessionOps::sendRawText(*this, data);
}

std::int64_t ORVANTESDK::sendcommandWithData(ByteView data, std::uint64_t) {
  return sendcommandWithData(data);
}
