// Commands that carry binary payloads: BITMAP, DOWNLOAD and the
// compressed bitmap packet.

#include <orvante/lzss.hpp>

#include "commands.hpp"
#include "render_error.hpp"

namespace orvante::vprinter {

namespace {

constexpr int kFar = 100000;

// Whether a printed dot (a 0 bit) of the raster at x, y falls outside a
// label of width x height: padding that runs past the edge is blank and
// loses nothing.
bool inkOutside(int x, int y, int bytesPerRow, int rows, ByteView raster, int width, int height) {
  for (int row = 0; row < rows; ++row) {
    const bool rowOutside = y + row < 0 || y + row >= height;
    for (int column = 0; column < bytesPerRow * 8; ++column) {
      const long dot = x + static_cast<long>(column);
      if (!rowOutside && dot >= 0 && dot < width) continue;
      const std::size_t at = static_cast<std::size_t>(row) * bytesPerRow + column / 8;
      if (at < raster.size() && !(raster[at] & (0x80 >> (column % 8)))) return true;
    }
  }
  return false;
}

void drawRaster(Printer& printer, int x, int y, int bytesPerRow, int rows, ByteView raster,
                BlitMode mode, JournalEntry& entry) {
  const long width = static_cast<long>(bytesPerRow) * 8;
  if (x >= printer.canvas.width() || y >= printer.canvas.height() || x + width <= 0 ||
      static_cast<long>(y) + rows <= 0) {
    if (rows > 0 && bytesPerRow > 0) entry.warn("the image lies outside the label: dropped");
    return;
  }
  if (printer.canvas.blit(x, y, bytesPerRow, rows, raster, mode) &&
      inkOutside(x, y, bytesPerRow, rows, raster, printer.canvas.width(),
                 printer.canvas.height())) {
    entry.warn("the image runs past the label's edge: cut off there");
  }
}

}  // namespace

std::string refusePayload(const Printer& printer, std::string_view header, PayloadKind kind,
                          std::size_t length) {
  if (kind == PayloadKind::Bitmap) {
    const std::size_t largest = static_cast<std::size_t>(printer.options.maxLabelWidthDots / 8 + 1) *
                                static_cast<std::size_t>(printer.options.maxLabelHeightDots);
    if (length > largest) {
      return "a bitmap of " + std::to_string(length) + " bytes is larger than any label";
    }
    return {};
  }
  const CommandLine command = CommandLine::parse(header);
  const std::string& name = command.arguments[command.arguments.size() - 3].text;
  std::size_t room = printer.freeMemory();
  if (const auto old = printer.files.find(name); old != printer.files.end()) room += old->second.size();
  if (length > room) {
    return "no room for " + std::to_string(length) + " bytes: " + std::to_string(room) + " free";
  }
  return {};
}

// BITMAP X,Y,WIDTHBYTES,HEIGHT,MODE, then the raster.
void drawBitmap(Printer& printer, const CommandLine& header, ByteView raster, JournalEntry& entry) {
  const Arguments args = printer.arguments(header);
  const int x = printer.labelX(args.integer(0, "x", -kFar, kFar));
  const int y = printer.labelY(args.integer(1, "y", -kFar, kFar));
  const int bytesPerRow = args.integer(2, "width in bytes", 0, kFar);
  const int rows = args.integer(3, "height", 0, kFar);
  const int mode = args.integer(4, "mode", 0, 2);
  static constexpr BlitMode kModes[] = {BlitMode::Overwrite, BlitMode::Or, BlitMode::Xor};
  drawRaster(printer, x, y, bytesPerRow, rows, raster, kModes[mode], entry);
}

// A BITMAP or DOWNLOAD line that ended before its header was complete,
// or whose header fields are not what they must be.
void incompleteBitmap(Printer& printer, const CommandLine& command, JournalEntry&) {
  const Arguments args = printer.arguments(command);
  args.integer(0, "x", -kFar, kFar);
  args.integer(1, "y", -kFar, kFar);
  args.integer(2, "width in bytes", 0, kFar);
  args.integer(3, "height", 0, kFar);
  args.integer(4, "mode", 0, 2);
  throw CommandWarning("BITMAP needs X,Y,WIDTHBYTES,HEIGHT,MODE, before its bytes");
}

void incompleteDownload(Printer&, const CommandLine&, JournalEntry&) {
  throw CommandWarning("DOWNLOAD needs [F,]\"NAME\",SIZE, before its bytes");
}

void addPayloadCommands(CommandTable& table) {
  table.emplace("BITMAP", incompleteBitmap);
  table.emplace("DOWNLOAD", incompleteDownload);
}

// DOWNLOAD [F,]"NAME",SIZE, then the file.
void storeFile(Printer& printer, const CommandLine& header, ByteView bytes, JournalEntry& entry) {
  const std::string& name = header.arguments[header.arguments.size() - 3].text;
  if (name.empty()) throw CommandWarning("a file needs a name");
  printer.files[name] = Bytes(bytes.begin(), bytes.end());
  printer.fonts.forget(name);
  entry.notes.emplace_back("stored", name);
}

// The packet overwrites the buffer with its raster, once the stream
// decodes to exactly bytes-per-row x height bytes.
void drawPacket(Printer& printer, const PacketHeader& header, ByteView stream, JournalEntry& entry) {
  Bytes raster;
  try {
    raster = lzss::decode(stream, header.rasterSize());
  } catch (const lzss::DecodeError& failure) {
    throw CommandWarning(std::string("bad LZSS stream: ") + failure.what() + ": dropped");
  }
  drawRaster(printer, printer.labelX(header.x), printer.labelY(header.y), header.bytesPerRow,
             header.rows, raster, BlitMode::Overwrite, entry);
}

}  // namespace orvante::vprinter
