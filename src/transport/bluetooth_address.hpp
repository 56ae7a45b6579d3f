#pragma once
// Bluetooth device addresses as people and BlueZ write them: the same
// address in either case.

#include <algorithm>
#include <cctype>
#include <string_view>

namespace orvante::transport {

inline bool sameBluetoothAddress(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::toupper(static_cast<unsigned char>(x)) == std::toupper(static_cast<unsigned char>(y));
  });
}

}  // namespace orvante::transport
