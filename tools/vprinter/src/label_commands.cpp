// Label setup and printing: size, media, speed and density, the buffer,
// direction and reference, settings kept for the journal, and PRINT.

#include <algorithm>

#include "commands.hpp"
#include "render_error.hpp"

namespace orvante::vprinter {

namespace {

void size(Printer& printer, const CommandLine& command, JournalEntry& entry) {
  const Arguments args = printer.arguments(command);
  const int width = args.length(0, "width");
  const int height = args.has(1) ? args.length(1, "height") : printer.settings.height;
  const std::string warning = printer.resize(width, height);
  if (!warning.empty()) entry.warn(warning);
}

void media(Printer& printer, const CommandLine& command, bool blackMark) {
  const Arguments args = printer.arguments(command);
  const int gap = args.length(0, "gap");
  const int offset = args.has(1) ? args.length(1, "offset") : 0;
  printer.settings.gap = gap;
  printer.settings.gapOffset = offset;
  printer.settings.blackMark = blackMark;
}

void gap(Printer& printer, const CommandLine& command, JournalEntry&) {
  media(printer, command, false);
}

void blackLine(Printer& printer, const CommandLine& command, JournalEntry&) {
  media(printer, command, true);
}

// SPEED and DENSITY only shape real print quality: kept for the journal.
void speed(Printer& printer, const CommandLine& command, JournalEntry&) {
  printer.arguments(command).number(0, "speed");
  printer.settings.speed = command.arguments[0].text;
}

void density(Printer& printer, const CommandLine& command, JournalEntry&) {
  printer.arguments(command).integer(0, "density", 0, 15);
  printer.settings.density = command.arguments[0].text;
}

void clearBuffer(Printer& printer, const CommandLine&, JournalEntry&) { printer.canvas.clear(); }

void print(Printer& printer, const CommandLine& command, JournalEntry& entry) {
  const Arguments args = printer.arguments(command);
  const long sets = args.integer(0, "sets", 0, 999999999);
  const long copies = args.integerOr(1, "copies", 0, 999999999, 1);
  const long limit = printer.options.maxCopiesPerPrint;
  const long count = sets * copies > limit ? limit : sets * copies;
  printer.print(count, entry);
  if (count < sets * copies) {
    entry.warn("printed " + std::to_string(count) + " of " + std::to_string(sets * copies) +
               " labels, the most one PRINT makes here");
  }
}

void direction(Printer& printer, const CommandLine& command, JournalEntry&) {
  const Arguments args = printer.arguments(command);
  const int turned = args.integer(0, "direction", 0, 1);
  const int mirrored = args.integerOr(1, "mirror", 0, 1, 0);
  printer.settings.turned = turned == 1;
  printer.settings.mirrored = mirrored == 1;
}

void reference(Printer& printer, const CommandLine& command, JournalEntry&) {
  const Arguments args = printer.arguments(command);
  printer.settings.referenceX = args.integer(0, "x", -100000, 100000);
  printer.settings.referenceY = args.integer(1, "y", -100000, 100000);
}

void offset(Printer& printer, const CommandLine& command, JournalEntry&) {
  printer.arguments(command).text(0, "offset");
  printer.settings.offset = command.arguments[0].text;
}

void shift(Printer& printer, const CommandLine& command, JournalEntry&) {
  const Arguments args = printer.arguments(command);
  args.number(0, "shift");
  printer.settings.shift = command.arguments[0].text;
  if (args.has(1)) printer.settings.shift += "," + command.arguments[1].text;
}

void codePage(Printer& printer, const CommandLine& command, JournalEntry&) {
  const std::string& page = printer.arguments(command).text(0, "code page");
  if (page.empty()) throw CommandWarning("missing code page");
  printer.settings.codePage = page;
}

// SET KEY VALUE, as SET TEAR OFF or SET CUTTER 1.
void set(Printer& printer, const CommandLine& command, JournalEntry&) {
  const std::string_view text = trimmed(printer.arguments(command).text(0, "setting"));
  const std::size_t blank = text.find_first_of(" \t");
  if (blank == std::string_view::npos) throw CommandWarning("SET needs a setting and a value");
  const std::string rest(trimmed(text.substr(blank)));
  std::string value = rest;
  for (std::size_t i = 1; i < command.arguments.size(); ++i) value += "," + command.arguments[i].text;
  printer.settings.set[upperCase(text.substr(0, blank))] = value;
}

// Feeding and cutting move paper: they count in the mileage, nothing more.
void formFeed(Printer& printer, const CommandLine&, JournalEntry&) { printer.feedLabel(); }

void paperMove(Printer& printer, const CommandLine& command, JournalEntry&) {
  if (!command.arguments.empty()) {
    const int dots = printer.arguments(command).integer(0, "length", 0, 100000);
    printer.mileageMm += static_cast<double>(dots) / dotsPerMm(printer.dpi());
  }
}

void accepted(Printer&, const CommandLine&, JournalEntry&) {}

}  // namespace

void addLabelCommands(CommandTable& table) {
  table.emplace("SIZE", size);
  table.emplace("GAP", gap);
  table.emplace("BLINE", blackLine);
  table.emplace("SPEED", speed);
  table.emplace("DENSITY", density);
  table.emplace("CLS", clearBuffer);
  table.emplace("PRINT", print);
  table.emplace("DIRECTION", direction);
  table.emplace("REFERENCE", reference);
  table.emplace("OFFSET", offset);
  table.emplace("SHIFT", shift);
  table.emplace("CODEPAGE", codePage);
  table.emplace("SET", set);
  table.emplace("FORMFEED", formFeed);
  table.emplace("FEED", paperMove);
  table.emplace("BACKFEED", paperMove);
  table.emplace("BACKUP", paperMove);
  table.emplace("HOME", formFeed);
  table.emplace("CUT", accepted);
  table.emplace("SOUND", accepted);
  table.emplace("EOP", accepted);
}

}  // namespace orvante::vprinter
