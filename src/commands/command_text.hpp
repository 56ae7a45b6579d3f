#pragma once
// Fills a command's format: each "%@" takes the text form of the next
// argument, in order, as the platform's formatting does.

#include <initializer_list>
#include <string>
#include <string_view>

#include <orvante/value.hpp>

namespace orvante {

inline std::string fill(std::string_view format, std::initializer_list<Value> arguments) {
  std::string text;
  auto next = arguments.begin();
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] == '%' && i + 1 < format.size() && format[i + 1] == '@' &&
        next != arguments.end()) {
      text += (next++)->description();
      ++i;
    } else {
      text += format[i];
    }
  }
  return text;
}

}  // namespace orvante
