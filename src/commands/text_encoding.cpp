#include "text_encoding.hpp"

#include <iconv.h>

#include <cerrno>

namespace orvante {
namespace {

const char* iconvName(Encoding encoding) {
  switch (encoding) {
    case Encoding::Utf8:
      return "UTF-8";
    case Encoding::Big5:
      return "BIG5";
    case Encoding::Big5Hkscs:
      return "BIG5-HKSCS";
    case Encoding::Gb18030:
      return "GB18030";
    case Encoding::MacRoman:
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

// Converts between two iconv encodings; none when the input holds a
// sequence the source encoding does not allow or the target cannot carry.
std::optional<Bytes> convert(ByteView input, const char* from, const char* to) {
  iconv_t converter = iconv_open(to, from);
  if (converter == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
  Bytes out(input.size() * 4 + 16);
  char* in = reinterpret_cast<char*>(const_cast<std::uint8_t*>(input.data()));
  std::size_t inLeft = input.size();
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
    ok = false;
    break;
  }
  if (ok) iconv(converter, nullptr, nullptr, &next, &outLeft);
  iconv_close(converter);
  if (!ok) return std::nullopt;
  out.resize(out.size() - outLeft);
  return out;
}

}  // namespace

Bytes encode(std::string_view text, Encoding encoding) {
  // Command lines are nearly always ASCII, which every one of these
  // encodings leaves as it is.
  if (encoding == Encoding::Utf8 || isAscii(text)) return bytesOf(text);
  return convert(viewOf(text), "UTF-8", iconvName(encoding)).value_or(Bytes{});
}

std::optional<std::string> decodeUtf8(ByteView bytes) {
  if (!convert(bytes, "UTF-8", "UTF-8")) return std::nullopt;
  return textOf(bytes);
}

std::optional<std::string> decodeAscii(ByteView bytes) {
  for (auto byte : bytes) {
    if (byte >= 0x80) return std::nullopt;
  }
  return textOf(bytes);
}

}  // namespace orvante
