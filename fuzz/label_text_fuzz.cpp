// Arbitrary text into every Label builder that places text in a command
// line, the bytes into the virtual printer's engine: either the builder
// refuses the text, or the printer runs exactly the one command the builder
// made, with the text arriving exactly as given.
//
// The first byte chooses the builder; the rest is the text.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <orvante/label.hpp>
#include <orvante/vprinter/engine.hpp>

#include "../tools/vprinter/src/journal.hpp"
#include "commands/text_encoding.hpp"

namespace {

using namespace orvante;

std::vector<std::string> journal;

vprinter::Engine& engine() {
  static vprinter::Engine printer([] {
    vprinter::Options options;
    options.onJournal = [](std::string_view line) { journal.emplace_back(line); };
    options.onPrinted = [](const vprinter::PrintedLabel&) { return std::string("-"); };
    return options;
  }());
  return printer;
}

// The journal keeps the first 256 bytes of an argument.
std::string journaled(const std::string& argument) {
  return vprinter::jsonString(argument.size() > 256 ? argument.substr(0, 256) + "..." : argument);
}

std::string expected(const std::string& command, const std::vector<std::string>& arguments) {
  std::string text = "\"command\":\"" + command + "\",\"arguments\":[";
  for (std::size_t i = 0; i < arguments.size(); ++i)
    text += (i ? "," : "") + journaled(arguments[i]);
  return text + "]";
}

std::string bytesIn(const std::string& text, Encoding encoding) {
  return textOf(encode(text, encoding));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  Label label;
  std::string want;
  try {
    switch (data[0] % 7) {
      case 0:
        label.text(1, 2, "3", text);
        want = expected("TEXT", {"1", "2", "3", "0", "1", "1", text});
        break;
      case 1:
        label.text(1, 2, "3", text, {0, 1, 1, Encoding::Big5});
        want = expected("TEXT", {"1", "2", "3", "0", "1", "1", bytesIn(text, Encoding::Big5)});
        break;
      case 2:
        label.text(1, 2, "3", text, {0, 1, 1, Encoding::Gb18030});
        want =
            expected("TEXT", {"1", "2", "3", "0", "1", "1", bytesIn(text, Encoding::Gb18030)});
        break;
      case 3:
        label.barcode(1, 2, "128", text, 10);
        want = expected("BARCODE", {"1", "2", "128", "10", "1", "0", "2", "2",
                                    bytesIn(text, Encoding::Big5Hkscs)});
        break;
      case 4:
        label.text(1, 2, text, "x");
        want = expected("TEXT", {"1", "2", text, "0", "1", "1", "x"});
        break;
      case 5:
        label.barcode(1, 2, text, "1", 10);
        want = expected("BARCODE", {"1", "2", text, "10", "1", "0", "2", "2", "1"});
        break;
      default:
        label.download(text, viewOf("abc"));
        want = expected("DOWNLOAD", {"F", text, "3"});
        break;
    }
  } catch (const std::invalid_argument&) {
    return 0;
  }
  journal.clear();
  static vprinter::ConnectionId connection = 0;
  engine().feed(++connection, label.bytes());
  engine().disconnect(connection);
  if (journal.size() != 1) __builtin_trap();
  const std::string& line = journal.front();
  if (line.find(",\"command\":") == std::string::npos ||
      line.compare(line.find("\"command\":"), want.size(), want) != 0) {
    __builtin_trap();
  }
  // Stored files would fill the printer's memory over a run.
  engine().feed(connection, viewOf("KILL \"*\"\r\n"));
  engine().disconnect(connection);
  return 0;
}
