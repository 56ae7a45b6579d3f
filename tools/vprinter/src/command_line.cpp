#include "command_line.hpp"

namespace orvante::vprinter {

namespace {

bool blank(char c) { return c == ' ' || c == '\t'; }

constexpr std::string_view kQuoteEscape = "\\[\"]";

// A quoted argument from its opening quote on; `at` ends past its closing
// quote (or at the end of the line when it has none).
std::string quotedText(std::string_view line, std::size_t& at) {
  std::string text;
  ++at;
  while (at < line.size() && line[at] != '"') {
    if (line.compare(at, kQuoteEscape.size(), kQuoteEscape) == 0) {
      text += '"';
      at += kQuoteEscape.size();
      continue;
    }
    text += line[at++];
  }
  if (at < line.size()) ++at;
  return text;
}

}  // namespace

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  return text;
}

std::string upperCase(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

std::string_view leadingKeyword(std::string_view line) {
  std::size_t start = 0;
  while (start < line.size() && blank(line[start])) ++start;
  std::size_t end = start;
  while (end < line.size() && !blank(line[end]) && line[end] != ',') ++end;
  return line.substr(start, end - start);
}

CommandLine CommandLine::parse(std::string_view line) {
  CommandLine command;
  const std::string_view keyword = leadingKeyword(line);
  command.keyword = upperCase(keyword);
  std::size_t at = static_cast<std::size_t>(keyword.data() - line.data()) + keyword.size();
  command.rest = std::string(trimmed(line.substr(at)));
  if (trimmed(line.substr(at)).empty()) return command;
  for (;;) {
    while (at < line.size() && blank(line[at])) ++at;
    Argument argument;
    if (at < line.size() && line[at] == '"') {
      argument.quoted = true;
      argument.text = quotedText(line, at);
      while (at < line.size() && line[at] != ',') ++at;
    } else {
      const std::size_t start = at;
      while (at < line.size() && line[at] != ',') ++at;
      argument.text = std::string(trimmed(line.substr(start, at - start)));
    }
    command.arguments.push_back(std::move(argument));
    if (at >= line.size()) break;
    ++at;  // the comma
  }
  return command;
}

}  // namespace orvante::vprinter
