#pragma once
// Reading a command's arguments: numbers where numbers belong, lengths
// with their unit, quoted text. A missing or malformed field throws
// CommandWarning naming it.

#include <cstddef>
#include <string>

#include "command_line.hpp"

namespace orvante::vprinter {

class Arguments {
 public:
  Arguments(const CommandLine& command, int dpi) : command_(command), dpi_(dpi) {}

  std::size_t count() const { return command_.arguments.size(); }
  bool has(std::size_t index) const { return index < count(); }

  // A whole number in [low, high].
  int integer(std::size_t index, const char* name, int low, int high) const;
  int integerOr(std::size_t index, const char* name, int low, int high, int fallback) const;
  double number(std::size_t index, const char* name) const;
  // A length in dots: "N mm", "N dot", or inches without a unit.
  int length(std::size_t index, const char* name) const;
  const std::string& text(std::size_t index, const char* name) const;

 private:
  const Argument& field(std::size_t index, const char* name) const;

  const CommandLine& command_;
  int dpi_;
};

}  // namespace orvante::vprinter
