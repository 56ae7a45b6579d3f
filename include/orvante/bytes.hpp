#pragma once
// Byte buffers and views used throughout the library.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// The bytes of a text, unchanged.
inline ByteView viewOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline Bytes bytesOf(std::string_view text) {
  auto view = viewOf(text);
  return Bytes(view.begin(), view.end());
}

inline std::string textOf(ByteView bytes) {
  return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

}  // namespace orvante

ORVANTE_API_END
