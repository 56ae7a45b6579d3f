#pragma once
// Internal: the text an object gives in a log line, "(null)" for none.

#include <optional>
#include <string>

namespace orvante {

inline std::string describe(const std::optional<std::string>& text) {
  return text ? *text : "(null)";
}

}  // namespace orvante
