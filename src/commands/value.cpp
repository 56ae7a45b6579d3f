#include <orvante/value.hpp>

#include <charconv>
#include <cmath>

namespace orvante {
namespace {

template <class... F>
struct Overloaded : F... {
  using F::operator()...;
};
template <class... F>
Overloaded(F...) -> Overloaded<F...>;

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

std::string shortest(double number) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number > 0 ? "inf" : "-inf";
  char text[64];
  const auto result = std::to_chars(text, text + sizeof text, number);
  return std::string(text, result.ptr);
}

bool stringTruth(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && isBlank(text[i])) ++i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  while (i < text.size() && text[i] == '0') ++i;
  if (i == text.size()) return false;
  const char c = text[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

float stringNumber(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && isBlank(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  double number = 0;
  const auto result = std::from_chars(text.data() + i, text.data() + text.size(), number,
                                      std::chars_format::general);
  if (result.ec == std::errc::result_out_of_range)
    number = HUGE_VAL;
  else if (result.ec != std::errc())
    number = 0;
  return static_cast<float>(negative ? -number : number);
}

}  // namespace

std::string Value::description() const {
  return std::visit(Overloaded{
                        [](const std::string& text) { return text; },
                        [](std::int64_t number) { return std::to_string(number); },
                        [](std::uint64_t number) { return std::to_string(number); },
                        [](double number) { return shortest(number); },
                        [](bool flag) { return std::string(flag ? "1" : "0"); },
                    },
                    value_);
}

bool Value::boolValue() const {
  return std::visit(Overloaded{
                        [](const std::string& text) { return stringTruth(text); },
                        [](std::int64_t number) { return number != 0; },
                        [](std::uint64_t number) { return number != 0; },
                        [](double number) { return number != 0; },
                        [](bool flag) { return flag; },
                    },
                    value_);
}

float Value::floatValue() const {
  return std::visit(Overloaded{
                        [](const std::string& text) { return stringNumber(text); },
                        [](std::int64_t number) { return static_cast<float>(number); },
                        [](std::uint64_t number) { return static_cast<float>(number); },
                        [](double number) { return static_cast<float>(number); },
                        [](bool flag) { return flag ? 1.0f : 0.0f; },
                    },
                    value_);
}

}  // namespace orvante
