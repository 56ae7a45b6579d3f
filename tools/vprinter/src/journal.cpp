#include "journal.hpp"

#include <cstdio>
#include <ctime>

#include "printer_font.hpp"

namespace orvante::vprinter {

namespace {

std::string timestamp(std::chrono::system_clock::time_point time) {
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = static_cast<std::time_t>(millis / 1000);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                static_cast<int>(millis % 1000));
  return text;
}

const char* outcomeName(Outcome outcome) {
  switch (outcome) {
    case Outcome::Ok:
      return "ok";
    case Outcome::Printed:
      return "printed";
    case Outcome::Warning:
      return "warning";
    case Outcome::Unknown:
      return "unknown";
  }
  return "ok";
}

std::string jsonList(const std::vector<std::string>& items) {
  std::string out = "[";
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i) out += ',';
    out += jsonString(items[i]);
  }
  return out + "]";
}

}  // namespace

std::string jsonString(const std::string& text) {
  const std::string utf8 = asUtf8(text);
  std::string out = "\"";
  for (unsigned char c : utf8) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20 || c == 0x7F) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          out += escaped;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

std::string JournalEntry::json(std::chrono::system_clock::time_point time) const {
  std::string out = "{\"time\":\"" + timestamp(time) + "\"";
  out += ",\"connection\":" + std::to_string(connection);
  out += ",\"command\":" + jsonString(command);
  out += ",\"arguments\":" + jsonList(arguments);
  if (payload) {
    char hash[20];
    std::snprintf(hash, sizeof hash, "%016llx", static_cast<unsigned long long>(payload->hash));
    out += ",\"payload\":{\"length\":" + std::to_string(payload->length) + ",\"fnv1a64\":\"" +
           hash + "\"}";
  }
  out += ",\"outcome\":\"" + std::string(outcomeName(outcome)) + "\"";
  if (!reason.empty()) out += ",\"reason\":" + jsonString(reason);
  if (!labels.empty()) out += ",\"labels\":" + jsonList(labels);
  for (const auto& [key, value] : notes) out += "," + jsonString(key) + ":" + jsonString(value);
  return out + "}";
}

}  // namespace orvante::vprinter
