#include <algorithm>
#include <cctype>

#include <orvante/platform/ble.hpp>

namespace orvante::ble {
namespace {

// The Bluetooth base UUID 00000000-0000-1000-8000-00805F9B34FB.
constexpr std::array<std::uint8_t, 16> kBase{0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                             0x80, 0x00, 0x00, 0x80, 0x5F, 0x9B, 0x34, 0xFB};

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool parseHex(std::string_view text, std::uint8_t* out) {
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const int high = hexDigit(text[i]);
    const int low = hexDigit(text[i + 1]);
    if (high < 0 || low < 0) return false;
    out[i / 2] = static_cast<std::uint8_t>(high * 16 + low);
  }
  return true;
}

std::string upper(std::string_view text) {
  std::string result(text);
  for (auto& c : result) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return result;
}

}  // namespace

Uuid::Uuid(std::string_view text) {
  std::array<std::uint8_t, 16> bytes = kBase;
  bool ok = false;
  if (text.size() == 4) {
    ok = parseHex(text, &bytes[2]);
  } else if (text.size() == 8) {
    ok = parseHex(text, &bytes[0]);
  } else if (text.size() == 36 && text[8] == '-' && text[13] == '-' && text[18] == '-' &&
             text[23] == '-') {
    ok = parseHex(text.substr(0, 8), &bytes[0]) && parseHex(text.substr(9, 4), &bytes[4]) &&
         parseHex(text.substr(14, 4), &bytes[6]) && parseHex(text.substr(19, 4), &bytes[8]) &&
         parseHex(text.substr(24, 12), &bytes[10]);
  }
  if (!ok) {
    text_ = upper(text);
    return;
  }
  bytes_ = bytes;
  parsed_ = true;
  static constexpr char kDigits[] = "0123456789ABCDEF";
  auto hex = [&](int from, int to) {
    std::string out;
    for (int i = from; i < to; ++i) {
      out += kDigits[bytes_[i] >> 4];
      out += kDigits[bytes_[i] & 15];
    }
    return out;
  };
  const bool based = std::equal(bytes_.begin() + 4, bytes_.end(), kBase.begin() + 4);
  if (based && bytes_[0] == 0 && bytes_[1] == 0) {
    text_ = hex(2, 4);
  } else if (based) {
    text_ = hex(0, 4);
  } else {
    text_ = hex(0, 4) + "-" + hex(4, 6) + "-" + hex(6, 8) + "-" + hex(8, 10) + "-" + hex(10, 16);
  }
}

bool Uuid::operator==(const Uuid& other) const {
  if (parsed_ && other.parsed_) return bytes_ == other.bytes_;
  return text_ == other.text_;
}

}  // namespace orvante::ble
