#pragma once
// The printer that all connections share: label settings, the image
// buffer, stored files, network settings, battery, RFID tag and mileage.
// Command handlers read and change it; the engine owns it.

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <orvante/vprinter/engine.hpp>

#include "arguments.hpp"
#include "battery.hpp"
#include "canvas.hpp"
#include "journal.hpp"
#include "rfid_tag.hpp"
#include "stored_fonts.hpp"

namespace orvante::vprinter {

// Settings as they are at power-on and after ESC !R.
struct LabelSettings {
  int width = 0;  // dots
  int height = 0;
  int gap = 0;  // media gap or black mark, dots
  int gapOffset = 0;
  bool blackMark = false;
  std::string speed = "4";
  std::string density = "8";
  bool turned = false;  // DIRECTION 1: printed 180 degrees round
  bool mirrored = false;
  int referenceX = 0;
  int referenceY = 0;
  std::string offset = "0";
  std::string shift = "0";
  std::string codePage;
  std::map<std::string, std::string> set;  // SET keyword -> value
};

class Printer {
 public:
  explicit Printer(Options& options);

  Options& options;
  LabelSettings settings;
  Canvas canvas;
  std::map<std::string, Bytes> files;  // stored files by name
  StoredFonts fonts;
  std::map<std::string, std::string> wlan;
  std::string diagnosticInterface = "NET";
  Battery battery;
  RfidTag tag;
  std::string tagData;       // what the tag gave last
  bool tagAnswerDue = false;  // the next empty line answers tagData
  double mileageMm = 0;
  std::vector<PrintedLabel> printed;

  int dpi() const { return options.dpi; }
  Arguments arguments(const CommandLine& command) const { return {command, dpi()}; }
  // Label coordinates, moved by REFERENCE.
  int labelX(int x) const { return x + settings.referenceX; }
  int labelY(int y) const { return y + settings.referenceY; }

  // Replies go back on the connection whose bytes are being fed.
  void reply(std::string_view bytes) { replies_->insert(replies_->end(), bytes.begin(), bytes.end()); }
  // Where replies go; none (outside a feed) drops them.
  void replyTo(Bytes* replies) {
    noReplies_.clear();
    replies_ = replies ? replies : &noReplies_;
  }

  std::size_t freeMemory() const;
  // Label size, clamped to what the host allows; returns a warning or "".
  std::string resize(int width, int height);
  // Back to power-on: label state, image buffer and settings; files stay.
  void powerOn();
  // Prints `count` copies of the buffer into the entry.
  void print(long count, JournalEntry& entry);
  // One blank label through the printer.
  void feedLabel() { mileageMm += labelLengthMm(); }

 private:
  double labelLengthMm() const;
  Bytes* replies_ = nullptr;
  Bytes noReplies_;
};

}  // namespace orvante::vprinter
