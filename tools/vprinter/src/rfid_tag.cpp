#include "rfid_tag.hpp"

#include <cctype>

#include "render_error.hpp"

namespace orvante::vprinter {

namespace {

constexpr int kAscii = 1;

std::string hex(ByteView bytes) {
  static const char digits[] = "0123456789ABCDEF";
  std::string out;
  for (std::uint8_t byte : bytes) {
    out += digits[byte >> 4];
    out += digits[byte & 15];
  }
  return out;
}

Bytes fromHex(const std::string& text) {
  if (text.size() % 2 != 0) throw CommandWarning("hex data needs an even number of digits");
  Bytes bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    if (!std::isxdigit(static_cast<unsigned char>(text[i])) ||
        !std::isxdigit(static_cast<unsigned char>(text[i + 1]))) {
      throw CommandWarning("data is not hex: \"" + text + "\"");
    }
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

}  // namespace

RfidTag::RfidTag()
    : banks_{Bytes(8, 0),
             Bytes{0xE2, 0x80, 0x11, 0x70, 0x00, 0x00, 0x02, 0x0C, 0x0F, 0x8A, 0x1B, 0x2C},
             Bytes{0xE2, 0x80, 0x11, 0x70, 0x20, 0x00, 0x13, 0x37}, Bytes(64, 0)} {}

std::string RfidTag::detect() const { return hex(banks_[1]); }

Bytes& RfidTag::bankBytes(int bank) {
  if (bank < 0 || bank > 3) throw CommandWarning("memory bank must be 0 to 3");
  return banks_[static_cast<std::size_t>(bank)];
}

std::string RfidTag::read(int bank, int start, int size, int format) const {
  const Bytes& bytes = const_cast<RfidTag*>(this)->bankBytes(bank);
  if (start < 0 || size < 0 || static_cast<std::size_t>(start) + size > bytes.size()) {
    throw CommandWarning("read past the end of bank " + std::to_string(bank));
  }
  const ByteView part = ByteView(bytes).subspan(static_cast<std::size_t>(start),
                                                static_cast<std::size_t>(size));
  return format == kAscii ? textOf(part) : hex(part);
}

void RfidTag::write(int bank, int start, const std::string& data, int format) {
  Bytes& bytes = bankBytes(bank);
  const Bytes value = format == kAscii ? bytesOf(data) : fromHex(data);
  if (start < 0 || static_cast<std::size_t>(start) + value.size() > bytes.size()) {
    throw CommandWarning("write past the end of bank " + std::to_string(bank));
  }
  std::copy(value.begin(), value.end(), bytes.begin() + start);
}

}  // namespace orvante::vprinter
