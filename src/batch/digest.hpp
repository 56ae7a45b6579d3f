#pragma once
// A short digest of text, to know the same template, data and range again
// (FNV-1a, 64 bits, in hex): not for security.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace orvante::templating {

class Digest {
 public:
  Digest& add(std::string_view text) {
    for (unsigned char c : text) hash_ = (hash_ ^ c) * 1099511628211ull;
    // A separator, so that "ab" + "c" differs from "a" + "bc".
    hash_ = (hash_ ^ 0xFF) * 1099511628211ull;
    return *this;
  }
  std::string hex() const {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash_));
    return text;
  }

 private:
  std::uint64_t hash_ = 14695981039346656037ull;
};

}  // namespace orvante::templating
