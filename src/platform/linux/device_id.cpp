#include "device_id.hpp"

#include <string_view>

namespace orvante::platform::linux_devices {
namespace {

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' ||
                           text.back() == '\n')) {
    text.remove_suffix(1);
  }
  return text;
}

std::string firstOf(const std::map<std::string, std::string>& fields,
                    std::initializer_list<const char*> keys) {
  for (const char* key : keys) {
    if (auto found = fields.find(key); found != fields.end() && !found->second.empty()) {
      return found->second;
    }
  }
  return {};
}

}  // namespace

std::optional<std::map<std::string, std::string>> parseDeviceId(ByteView reply) {
  if (reply.size() < 2) return std::nullopt;
  const std::size_t length = (std::size_t{reply[0]} << 8) | reply[1];
  if (length < 2 || length > reply.size()) return std::nullopt;
  std::string_view text(reinterpret_cast<const char*>(reply.data()) + 2, length - 2);
  if (const auto nul = text.find('\0'); nul != std::string_view::npos) text = text.substr(0, nul);
  std::map<std::string, std::string> fields;
  while (!text.empty()) {
    const auto end = text.find(';');
    const auto field = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    const auto colon = field.find(':');
    if (colon == std::string_view::npos) continue;
    const auto key = trimmed(field.substr(0, colon));
    if (key.empty()) continue;
    fields.emplace(std::string(key), std::string(trimmed(field.substr(colon + 1))));
  }
  return fields;
}

std::string printerNameOf(const std::map<std::string, std::string>& fields) {
  const auto maker = firstOf(fields, {"MFG", "MANUFACTURER"});
  const auto model = firstOf(fields, {"MDL", "MODEL"});
  if (maker.empty()) return model;
  if (model.empty()) return maker;
  return maker + " " + model;
}

}  // namespace orvante::platform::linux_devices
