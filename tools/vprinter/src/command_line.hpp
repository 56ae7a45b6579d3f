#pragma once
// A command line split into its keyword and its comma-separated arguments.
// Keywords are case-insensitive; blanks around arguments are ignored; a
// quoted argument runs to its closing double quote, commas and all, and
// writes a quote inside as \["].

#include <string>
#include <string_view>
#include <vector>

namespace orvante::vprinter {

struct Argument {
  std::string text;
  bool quoted = false;
};

struct CommandLine {
  std::string keyword;  // upper case
  std::vector<Argument> arguments;
  // The line after its keyword, as it stands: lines whose second word
  // names a setting ("WLAN SSID ...") parse it again.
  std::string rest;

  static CommandLine parse(std::string_view line);
};

// The first word of a line, as it stands.
std::string_view leadingKeyword(std::string_view line);
std::string upperCase(std::string_view text);
std::string_view trimmed(std::string_view text);

}  // namespace orvante::vprinter
