#include "fields.hpp"

#include <cstdio>
#include <stdexcept>

namespace orvante::fields {
namespace {

constexpr std::string_view kQuoteEscape = "\\[\"]";
// Bytes the printer acts on wherever they stand, even inside quotes.
constexpr std::string_view kImmediatePrefix = "~!";

// The place of byte `at` as a person counts it: characters from 1.
std::size_t characterNumber(std::string_view text, std::size_t at) {
  std::size_t number = 1;
  for (std::size_t i = 0; i < at && i < text.size(); ++i) {
    // UTF-8 continuation bytes belong to the character before them.
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++number;
  }
  return number;
}

std::string nameOf(unsigned char c) {
  switch (c) {
    case '\r':
      return "a carriage return";
    case '\n':
      return "a line feed";
    case '\0':
      return "a NUL";
    case 0x1B:
      return "an ESC";
    case '\t':
      return "a tab";
    default:
      break;
  }
  char hex[8];
  std::snprintf(hex, sizeof hex, "0x%02X", c);
  return "the control character " + std::string(hex);
}

bool control(unsigned char c) {
  return c < 0x20 || c == 0x7F;
}

[[noreturn]] void refuse(std::string_view argument, const std::string& what,
                         const std::string& where, std::string_view why) {
  throw std::invalid_argument(std::string(argument) + " holds " + what + " at " + where + ": " +
                              std::string(why));
}

std::string characterAt(std::string_view text, std::size_t at) {
  return "position " + std::to_string(characterNumber(text, at));
}

void requireCarriable(std::string_view argument, std::string_view bytes, bool counted) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto c = static_cast<unsigned char>(bytes[i]);
    const std::string position =
        counted ? characterAt(bytes, i) : "byte " + std::to_string(i + 1) + " of its encoded form";
    if (control(c)) {
      refuse(argument, nameOf(c), position, "a command line cannot carry it");
    }
    if (bytes.substr(i, kImmediatePrefix.size()) == kImmediatePrefix) {
      refuse(argument, "\"~!\"", position, "the printer would run it as a command");
    }
  }
}

bool tokenCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '.' ||
         c == '+' || c == '-';
}

void requireCharacters(std::string_view argument, std::string_view text, bool name) {
  if (text.empty()) throw std::invalid_argument(std::string(argument) + " is empty");
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (tokenCharacter(c) && !(name && c == '+')) continue;
    if (name && c == '_') continue;
    const auto byte = static_cast<unsigned char>(c);
    const std::string what = control(byte)  ? nameOf(byte)
                             : byte >= 0x80 ? "a non-ASCII character"
                                            : "'" + std::string(1, c) + "'";
    refuse(argument, what, characterAt(text, i),
           name ? "a name may hold only letters, digits, '.', '_' and '-'"
                : "it may hold only letters, digits, '.', '+' and '-'");
  }
}

}  // namespace

std::string quoted(std::string_view argument, std::string_view text) {
  requireCarriable(argument, text, true);
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    if (c == '"')
      escaped += kQuoteEscape;
    else
      escaped += c;
  }
  return escaped;
}

void requireToken(std::string_view argument, std::string_view text) {
  requireCharacters(argument, text, false);
}

void requireName(std::string_view argument, std::string_view text) {
  requireCharacters(argument, text, true);
}

void requireQuotable(std::string_view argument, ByteView encoded) {
  requireCarriable(argument,
                   std::string_view(reinterpret_cast<const char*>(encoded.data()), encoded.size()),
                   false);
}

}  // namespace orvante::fields
