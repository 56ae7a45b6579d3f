#pragma once
// The printer's commands, each a handler that changes the printer and
// fills its journal entry. A handler throws CommandWarning for an
// argument it cannot use; the command is then skipped.

#include <map>
#include <string>
#include <string_view>

#include "journal.hpp"
#include "printer.hpp"
#include "stream_parser.hpp"

namespace orvante::vprinter {

using Handler = void (*)(Printer&, const CommandLine&, JournalEntry&);
using CommandTable = std::map<std::string, Handler, std::less<>>;

// Line commands by keyword.
const CommandTable& commandTable();
void addLabelCommands(CommandTable& table);
void addDrawingCommands(CommandTable& table);
void addDeviceCommands(CommandTable& table);
void addPayloadCommands(CommandTable& table);

// An empty line: answers the RFID tag data when a tag command asked for it.
void emptyLine(Printer& printer, JournalEntry& entry);

// Commands with binary payloads.
std::string refusePayload(const Printer& printer, std::string_view header, PayloadKind kind,
                          std::size_t length);
void drawBitmap(Printer& printer, const CommandLine& header, ByteView raster, JournalEntry& entry);
void storeFile(Printer& printer, const CommandLine& header, ByteView bytes, JournalEntry& entry);
void drawPacket(Printer& printer, const PacketHeader& header, ByteView stream, JournalEntry& entry);

// ~!x and ESC !x, answered at once. Returns the journal's name for it.
std::string immediateCommand(Printer& printer, std::uint8_t lead, std::uint8_t code,
                             JournalEntry& entry);

inline int dotsPerMm(int dpi) { return dpi >= 250 ? 12 : 8; }

}  // namespace orvante::vprinter
