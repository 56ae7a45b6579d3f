// Immediate commands: ~! and ESC ! followed by one byte. They come with no
// line end and are answered at once.

#include <cstdio>

#include "commands.hpp"

namespace orvante::vprinter {

namespace {

constexpr char kCr = '\r';
constexpr char kEndOfFiles = 0x1A;

std::string tildeCommand(Printer& printer, std::uint8_t code, JournalEntry& entry) {
  std::string reply;
  switch (code) {
    case 'T':
      reply = printer.options.name + kCr;
      break;
    case 'I':
      reply = printer.settings.codePage + kCr;
      break;
    case '@': {
      char mileage[32];
      std::snprintf(mileage, sizeof mileage, "%.1f", printer.mileageMm / 1e6);
      reply = mileage + std::string(1, kCr);
      break;
    }
    case 'A':
      reply = std::to_string(printer.freeMemory()) + kCr;
      break;
    case 'F':
      for (const auto& [name, bytes] : printer.files) reply += name + kCr;
      reply += kEndOfFiles;
      break;
    default:
      entry.outcome = Outcome::Unknown;
      return "~!" + std::string(1, static_cast<char>(code));
  }
  printer.reply(reply);
  entry.notes.emplace_back("reply", reply);
  return "~!" + std::string(1, static_cast<char>(code));
}

std::string escapeCommand(Printer& printer, std::uint8_t code, JournalEntry& entry) {
  const std::string name = "ESC !" + std::string(1, static_cast<char>(code));
  if (code == '?') {
    const char status = static_cast<char>(printer.options.status);
    printer.reply(std::string_view(&status, 1));
    char shown[8];
    std::snprintf(shown, sizeof shown, "%02X", printer.options.status);
    entry.notes.emplace_back("reply", shown);
  } else if (code == 'R') {
    printer.powerOn();
  } else {
    entry.outcome = Outcome::Unknown;
  }
  return name;
}

}  // namespace

std::string immediateCommand(Printer& printer, std::uint8_t lead, std::uint8_t code,
                             JournalEntry& entry) {
  return lead == kEscape ? escapeCommand(printer, code, entry) : tildeCommand(printer, code, entry);
}

}  // namespace orvante::vprinter
