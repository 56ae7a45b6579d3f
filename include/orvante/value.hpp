#pragma once
// An argument that a command places into its text: a string, a number or a
// boolean, read the way the platform's string and number objects read.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

class Value {
 public:
  Value() : value_(std::string()) {}
  Value(std::string text) : value_(std::move(text)) {}
  Value(std::string_view text) : value_(std::string(text)) {}
  Value(const char* text) : value_(std::string(text)) {}
  Value(std::nullptr_t) = delete;
  Value(bool flag) : value_(flag) {}
  template <std::signed_integral T>
  Value(T number) : value_(static_cast<std::int64_t>(number)) {}
  template <std::unsigned_integral T>
  requires(!std::same_as<T, bool>) Value(T number) : value_(static_cast<std::uint64_t>(number)) {}
  template <std::floating_point T>
  Value(T number) : value_(static_cast<double>(number)) {}

  // The text form: a string as it is, a number in its shortest decimal form
  // (40, 2.5, 0.1, -3), a boolean as 1 or 0.
  std::string description() const;

  // Strings: after leading blanks, an optional sign and leading zeros, true
  // when the next character is Y, y, T, t or a digit 1 to 9. Numbers: true
  // when not zero.
  bool boolValue() const;

  // Strings: the leading decimal number, 0 when there is none.
  float floatValue() const;

  bool isString() const { return std::holds_alternative<std::string>(value_); }

 private:
  std::variant<std::string, std::int64_t, std::uint64_t, double, bool> value_;
};

}  // namespace orvante

ORVANTE_API_END
