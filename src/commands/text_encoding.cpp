#include "text_encoding.hpp"

#include <iconv.h>

#include <cerrno>

namespace orvante {
namespace {

const char* iconvName(TextEncoding encoding) {
  switch (encoding) {
    case TextEncoding::Utf8:
      return "UTF-8";
    case TextEncoding::Big5:
      return "BIG5";
    case TextEncoding::Big5Hkscs:
      return "BIG5-HKSCS";
    case TextEncoding::Gb18030:
      return "GB18030";
    case TextEncoding::MacRoman:
      return "MACINTOSH";
  }
  return "UTF-8";
}

bool isAscii(std::string_view text) {
  for (unsigned char c : text) {
    if (c >= 0x80) return false;
  }
  return true;
}

}  // namespace

Bytes encode(std::string_view text, TextEncoding encoding) {
  // Command lines are nearly always ASCII, which every one of these
  // encodings leaves as it is.
  if (encoding == TextEncoding::Utf8 || isAscii(text)) return bytesOf(text);

  iconv_t converter = iconv_open(iconvName(encoding), "UTF-8");
  if (converter == reinterpret_cast<iconv_t>(-1)) return {};
  Bytes out(text.size() * 4 + 16);
  char* in = const_cast<char*>(text.data());
  std::size_t inLeft = text.size();
  char* next = reinterpret_cast<char*>(out.data());
  std::size_t outLeft = out.size();
  bool ok = true;
  while (inLeft > 0) {
    if (iconv(converter, &in, &inLeft, &next, &outLeft) != static_cast<std::size_t>(-1)) continue;
    if (errno == E2BIG) {
      const auto used = out.size() - outLeft;
      out.resize(out.size() * 2);
      next = reinterpret_cast<char*>(out.data()) + used;
      outLeft = out.size() - used;
      continue;
    }
    ok = false;  // a character the encoding lacks, or input that is not UTF-8
    break;
  }
  if (ok) iconv(converter, nullptr, nullptr, &next, &outLeft);
  iconv_close(converter);
  if (!ok) return {};
  out.resize(out.size() - outLeft);
  return out;
}

}  // namespace orvante

namespace orvante {

std::optional<std::string> decodeUtf8(ByteView bytes) {
  for (std::size_t i = 0; i < bytes.size();) {
    const auto lead = bytes[i];
    const std::size_t length = lead < 0x80             ? 1
                               : (lead & 0xE0) == 0xC0 ? 2
                               : (lead & 0xF0) == 0xE0 ? 3
                               : (lead & 0xF8) == 0xF0 ? 4
                                                       : 0;
    if (length == 0 || i + length > bytes.size()) return std::nullopt;
    for (std::size_t k = 1; k < length; ++k) {
      if ((bytes[i + k] & 0xC0) != 0x80) return std::nullopt;
    }
    i += length;
  }
  return textOf(bytes);
}

std::optional<std::string> decodeAscii(ByteView bytes) {
  for (auto byte : bytes) {
    if (byte >= 0x80) return std::nullopt;
  }
  return textOf(bytes);
}

}  // namespace orvante
