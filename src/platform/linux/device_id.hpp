#pragma once
// The IEEE 1284 device ID a printer reports: a two-byte big-endian length
// (counting those two bytes) followed by "KEY:VALUE;" fields such as
// "MFG:...;MDL:...;CMD:...;".

#include <map>
#include <optional>
#include <string>

#include <orvante/bytes.hpp>

namespace orvante::platform::linux_devices {

// The fields of a device ID reply, keys as sent; none when the length
// prefix is missing or does not fit the reply. A last field without its
// ';' counts; text after a NUL byte does not.
std::optional<std::map<std::string, std::string>> parseDeviceId(ByteView reply);

// "MANUFACTURER MODEL" from MFG/MANUFACTURER and MDL/MODEL, or the one
// there is; empty when neither is.
std::string printerNameOf(const std::map<std::string, std::string>& fields);

}  // namespace orvante::platform::linux_devices
