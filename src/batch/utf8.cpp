#include "utf8.hpp"

namespace orvante::templating {

std::size_t firstInvalidUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const auto lead = static_cast<unsigned char>(text[at]);
    std::size_t length = 0;
    if (lead < 0x80) length = 1;
    else if (lead >= 0xC2 && lead <= 0xDF) length = 2;
    else if (lead >= 0xE0 && lead <= 0xEF) length = 3;
    else if (lead >= 0xF0 && lead <= 0xF4) length = 4;
    else return at;
    if (at + length > text.size()) return at;
    for (std::size_t k = 1; k < length; ++k) {
      if ((static_cast<unsigned char>(text[at + k]) & 0xC0) != 0x80) return at;
    }
    // Overlong forms, surrogates and code points past U+10FFFF.
    const auto second = length > 1 ? static_cast<unsigned char>(text[at + 1]) : 0;
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second >= 0xA0) ||
        (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second >= 0x90)) {
      return at;
    }
    at += length;
  }
  return std::string_view::npos;
}

}  // namespace orvante::templating
