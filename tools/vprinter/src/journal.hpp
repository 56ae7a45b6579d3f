#pragma once
// The journal: one JSON object per line for every command the printer
// got: time, connection, command keyword, arguments (binary payloads as
// their length and a hash), and the outcome.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvante::vprinter {

enum class Outcome { Ok, Printed, Warning, Unknown };

struct JournalEntry {
  std::uint32_t connection = 0;
  std::string command;
  std::vector<std::string> arguments;
  struct Payload {
    std::size_t length;
    std::uint64_t hash;
  };
  std::optional<Payload> payload;
  Outcome outcome = Outcome::Ok;
  std::string reason;               // why a warning
  std::vector<std::string> labels;  // where printed labels went
  // Further facts shown as fields of their own, such as a reply sent.
  std::vector<std::pair<std::string, std::string>> notes;

  void warn(std::string why) {
    outcome = Outcome::Warning;
    reason = std::move(why);
  }

  std::string json(std::chrono::system_clock::time_point time) const;
};

// Text as a JSON string literal; bytes that are not UTF-8 read as Latin-1.
std::string jsonString(const std::string& text);

}  // namespace orvante::vprinter
