#include "placeholders.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace orvante::templating {
namespace {

constexpr std::string_view kFlags = "-+ #0";
constexpr std::string_view kConversions = "diuxXofeg";
// The field ${n} stands for: the record's number.
constexpr std::string_view kNumberField = "n";

// Up to two digits at `at`; false when there are more.
bool digits(std::string_view text, std::size_t& at) {
  std::size_t count = 0;
  while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at, ++count;
  return count <= 2;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

template <typename Number>
bool parsed(std::string_view text, Number& number) {
  if (text.starts_with('+')) text.remove_prefix(1);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && !text.empty();
}

template <typename Number>
std::string printed(const std::string& format, Number number) {
  // The format was checked by NumberFormat::parse: one conversion of this type.
  char small[128];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = std::snprintf(small, sizeof small, format.c_str(), number);
  if (length < 0) throw std::invalid_argument("the number cannot be formatted");
  if (static_cast<std::size_t>(length) < sizeof small) return std::string(small, length);
  std::string large(static_cast<std::size_t>(length) + 1, '\0');
  std::snprintf(large.data(), large.size(), format.c_str(), number);
#pragma GCC diagnostic pop
  large.resize(static_cast<std::size_t>(length));
  return large;
}

}  // namespace

std::optional<NumberFormat> NumberFormat::parse(std::string_view text) {
  if (!text.starts_with('%')) return std::nullopt;
  std::size_t at = 1;
  while (at < text.size() && kFlags.find(text[at]) != std::string_view::npos) ++at;
  if (at - 1 > kFlags.size() || !digits(text, at)) return std::nullopt;
  if (at < text.size() && text[at] == '.') {
    ++at;
    if (!digits(text, at)) return std::nullopt;
  }
  if (at + 1 != text.size() || kConversions.find(text[at]) == std::string_view::npos) {
    return std::nullopt;
  }
  NumberFormat format;
  format.text_ = std::string(text);
  format.conversion_ = text[at];
  const bool whole = std::string_view("diuxXo").find(format.conversion_) != std::string_view::npos;
  format.spec_ = std::string(text.substr(0, at)) + (whole ? "ll" : "") + format.conversion_;
  return format;
}

std::string NumberFormat::apply(std::string_view value) const {
  const std::string_view number = trimmed(value);
  const std::string quoted = "\"" + std::string(value) + "\"";
  switch (conversion_) {
    case 'd':
    case 'i': {
      long long whole = 0;
      if (!parsed(number, whole)) {
        throw std::invalid_argument(quoted + " is not a whole number, which " + text_ + " needs");
      }
      return printed(spec_, whole);
    }
    case 'f':
    case 'e':
    case 'g': {
      double real = 0;
      if (!parsed(number, real) || !std::isfinite(real)) {
        throw std::invalid_argument(quoted + " is not a number, which " + text_ + " needs");
      }
      return printed(spec_, real);
    }
    default: {
      unsigned long long whole = 0;
      if (number.starts_with('-') || !parsed(number, whole)) {
        throw std::invalid_argument(quoted + " is not a whole number of 0 or more, which " + text_ +
                                    " needs");
      }
      return printed(spec_, whole);
    }
  }
}

PlaceholderText PlaceholderText::parse(std::string_view text) {
  PlaceholderText result;
  std::string literal;
  auto flush = [&] {
    if (!literal.empty()) result.pieces_.push_back({false, std::move(literal), std::nullopt});
    literal.clear();
  };
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '$') {
      literal += text[at];
      continue;
    }
    if (text.substr(at, 2) == "$$") {
      literal += '$';
      ++at;
      continue;
    }
    if (text.substr(at, 2) != "${") {
      literal += '$';
      continue;
    }
    const std::size_t close = text.find('}', at);
    if (close == std::string_view::npos) {
      throw std::invalid_argument("the placeholder at character " + std::to_string(at + 1) +
                                  " has no closing '}'");
    }
    const std::string_view inside = text.substr(at + 2, close - at - 2);
    const std::size_t colon = inside.find(':');
    const std::string_view field = inside.substr(0, colon);
    if (field.empty()) {
      throw std::invalid_argument("the placeholder ${" + std::string(inside) + "} names no field");
    }
    Piece piece{true, std::string(field), std::nullopt};
    if (colon != std::string_view::npos) {
      const std::string_view format = inside.substr(colon + 1);
      piece.format = NumberFormat::parse(format);
      if (!piece.format) {
        throw std::invalid_argument(
            "the format \"" + std::string(format) + "\" of ${" + std::string(inside) +
            "} is not one printf conversion of a number (such as %06d, %.2f or %x)");
      }
    }
    flush();
    result.pieces_.push_back(std::move(piece));
    at = close;
  }
  flush();
  return result;
}

void PlaceholderText::fill(const Record& record, const Defaults& defaults, std::string& out) const {
  for (const Piece& piece : pieces_) {
    if (!piece.placeholder) {
      out += piece.text;
      continue;
    }
    std::string number;
    const std::string* value = nullptr;
    if (piece.text == kNumberField) {
      number = std::to_string(record.number());
      value = &number;
    } else if (!(value = record.find(piece.text))) {
      const auto fallback = defaults.find(piece.text);
      if (fallback == defaults.end()) {
        throw std::invalid_argument("the record has no field \"" + piece.text +
                                    "\" and the template no default for it");
      }
      value = &fallback->second;
    }
    if (!piece.format) {
      out += *value;
      continue;
    }
    try {
      out += piece.format->apply(*value);
    } catch (const std::invalid_argument& notANumber) {
      throw std::invalid_argument("${" + piece.text + ":" + piece.format->text() +
                                  "}: " + notANumber.what());
    }
  }
}

void PlaceholderText::addFields(std::vector<std::string>& names) const {
  for (const Piece& piece : pieces_) {
    if (!piece.placeholder || piece.text == kNumberField) continue;
    if (std::find(names.begin(), names.end(), piece.text) == names.end()) names.push_back(piece.text);
  }
}

}  // namespace orvante::templating
