#pragma once
// The text encodings commands are sent in.

#include <optional>
#include <string>
#include <string_view>

#include <orvante/bytes.hpp>
#include <orvante/encoding.hpp>

namespace orvante {

// The UTF-8 text in the encoding; an empty buffer when the encoding cannot
// represent it (the caller sends that empty buffer all the same).
Bytes encode(std::string_view text, Encoding encoding);

// The bytes as text, when they are valid UTF-8; none otherwise.
std::optional<std::string> decodeUtf8(ByteView bytes);

// The bytes as text, when they are all ASCII; none otherwise.
std::optional<std::string> decodeAscii(ByteView bytes);

}  // namespace orvante
