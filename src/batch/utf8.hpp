#pragma once
// UTF-8 checks for data that comes from files.

#include <string_view>

namespace orvante::templating {

// Where the first byte that is not part of well-formed UTF-8 stands; npos
// when the text is UTF-8.
std::size_t firstInvalidUtf8(std::string_view text);

}  // namespace orvante::templating
