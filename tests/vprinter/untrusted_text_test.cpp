// Text from users through the second door, fed to the virtual printer: it
// prints exactly as given or is refused with the reason; it never becomes a
// command of its own.

#include <gtest/gtest.h>

#include <orvante/commands.hpp>
#include <orvante/label.hpp>

#include "commands/text_encoding.hpp"
#include "journal.hpp"
#include "printer_rig.hpp"

using namespace orvante;
using orvante::vprinter::testing::PrinterRig;

namespace {

// What a hostile user types into a name field.
const std::vector<std::string> kHostile = {
    "A\"\r\nKILL \"*\"",
    "A\"\r\nDOWNLOAD \"AUTO.BAS\",5,CLS\r\n",
    "x\"\r\nSET TEAR OFF",
    "\"\nBOX 0,0,100,100,5\n\"",
    std::string("a\0b", 3),
    "He said \"hi\"",
    "\x1B!R",
    "price ~!F",
    "~!T",
    "back\\slash \\[\"] as typed",
    "tab\there",
    ",\",\",",
    "價格 \"Preis\"",
    "del\x7F",
    "\"",
    "cr\r",
};

// The journal's arguments of each command the printer ran, in order.
std::vector<std::string> commandsRun(const PrinterRig& rig) {
  std::vector<std::string> commands;
  for (const auto& line : rig.journal) {
    const auto at = line.find("\"command\":");
    auto end = line.find(",\"payload\"");
    if (end == std::string::npos) end = line.find(",\"outcome\"");
    commands.push_back(line.substr(at, end - at));
  }
  return commands;
}

std::string journaled(const std::string& command, const std::vector<std::string>& arguments) {
  std::string text = "\"command\":" + vprinter::jsonString(command) + ",\"arguments\":[";
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    text += (i ? "," : "") + vprinter::jsonString(arguments[i]);
  }
  return text + "]";
}

// Either the builder refuses the text, naming it, or the printer runs
// exactly the one command expected.
void printsAsGivenOrIsRefused(const std::function<void(Label&)>& build, const std::string& argument,
                              const std::string& expected) {
  Label label;
  try {
    build(label);
  } catch (const std::invalid_argument& refused) {
    EXPECT_NE(std::string(refused.what()).find(argument), std::string::npos) << refused.what();
    EXPECT_NE(std::string(refused.what()).find("position"), std::string::npos) << refused.what();
    return;
  }
  PrinterRig rig;
  rig.feed(label.bytes());
  EXPECT_EQ(commandsRun(rig), std::vector<std::string>{expected}) << textOf(label.bytes());
}

}  // namespace

TEST(UntrustedText, TextAndCodesPrintAsGivenOrAreRefused) {
  int printed = 0, refused = 0;
  for (const auto& text : kHostile) {
    printsAsGivenOrIsRefused([&](Label& l) { l.text(10, 20, "3", text); }, "the content",
                             journaled("TEXT", {"10", "20", "3", "0", "1", "1", text}));
    // Barcodes go in Big5-HKSCS.
    const std::string big5 = textOf(encode(text, Encoding::Big5Hkscs));
    printsAsGivenOrIsRefused(
        [&](Label& l) { l.barcode(10, 20, "128", text, 50); }, "the code",
        journaled("BARCODE", {"10", "20", "128", "50", "1", "0", "2", "2", big5}));
    printsAsGivenOrIsRefused([&](Label& l) { l.qrCode(10, 20, text); }, "the data",
                             journaled("QRCODE", {"10", "20", "M", "4", "A", "0", text}));
    printsAsGivenOrIsRefused(
        [&](Label& l) { l.textBlock(10, 20, 300, 100, "3", text); }, "the content",
        journaled("BLOCK", {"10", "20", "300", "100", "3", "0", "1", "1", "0", "1", text}));
    try {
      Label().text(0, 0, "3", text);
      ++printed;
    } catch (const std::invalid_argument&) {
      ++refused;
    }
  }
  // Quotes, backslashes, commas and other scripts print; line ends, NUL,
  // ESC, tab, DEL and "~!" are refused.
  EXPECT_EQ(printed, 5);
  EXPECT_EQ(refused, 11);
}

TEST(UntrustedText, NamesHoldOnlyTheCharactersThePrinterReadsThere) {
  for (const auto& text : kHostile) {
    EXPECT_THROW(Label().text(0, 0, text, "x"), std::invalid_argument) << text;
    EXPECT_THROW(Label().barcode(0, 0, text, "1", 10), std::invalid_argument) << text;
    EXPECT_THROW(Label().textBlock(0, 0, 10, 10, text, "x"), std::invalid_argument) << text;
    EXPECT_THROW(Label().download(text, viewOf("abc")), std::invalid_argument) << text;
  }
  printsAsGivenOrIsRefused([](Label& l) { l.download("LOGO_2.BMP", viewOf("abc")); }, "",
                           journaled("DOWNLOAD", {"F", "LOGO_2.BMP", "3"}));
  EXPECT_EQ(
      [] {
        try {
          Label().download("A\"\r\nKILL", viewOf("x"));
        } catch (const std::invalid_argument& refused) {
          return std::string(refused.what());
        }
        return std::string("accepted");
      }(),
      "the file name holds '\"' at position 2: a name may hold only letters, digits, '.', '_' and "
      "'-'");
}

TEST(UntrustedText, TheLanguagesEncodingsCannotSmuggleAnImmediateCommand) {
  // 才 is A4 7E in Big5 and 亊 is 81 7E in GB 18030: before "!" they read
  // as "~!".
  EXPECT_THROW(Label().text(0, 0, "3", "才!", {0, 1, 1, Encoding::Big5}), std::invalid_argument);
  EXPECT_THROW(Label().text(0, 0, "3", "亊!", {0, 1, 1, Encoding::Gb18030}), std::invalid_argument);
  EXPECT_NO_THROW(Label().text(0, 0, "3", "才 !", {0, 1, 1, Encoding::Big5}));
  EXPECT_THROW(Label().barcode(0, 0, "128", "才!", 10), std::invalid_argument);
  // Bytes that are no UTF-8, or a character Big5-HKSCS lacks, are refused
  // rather than sent as an empty line.
  EXPECT_THROW(Label().barcode(0, 0, "128", "SHIP\xD2", 10), std::invalid_argument);
  EXPECT_THROW(Label().barcode(0, 0, "128", "\U0001F600", 10), std::invalid_argument);
}

TEST(UntrustedText, DeviceSettingsAreEscapedOrRefusedAndTheSessionKeepsItsBytes) {
  EXPECT_EQ(commands::wifiSsidLine("My \"Net\""), "WLAN SSID \"My \\[\"]Net\\[\"]\"\r\n");
  PrinterRig rig;
  rig.feed(commands::wifiSsidLine("Shop \"North\", 2.4 GHz"));
  EXPECT_TRUE(rig.journaled("\"SSID\":\"Shop \\\"North\\\", 2.4 GHz\"")) << rig.last();
  EXPECT_THROW(commands::wifiWpaLine("pw\"\r\nWLAN DEFAULT"), std::invalid_argument);
  EXPECT_THROW(commands::wifiStaticIpLine("10.0.0.1", "255.0.0.0\n", "10.0.0.254"),
               std::invalid_argument);
  EXPECT_THROW(commands::rfidReadLine("EPC, 1", 0, 0, 8, 1), std::invalid_argument);
  EXPECT_EQ(commands::rfidWriteLine("EPC", "H", 2, 6, 1, "a\"b"),
            "RFID WRITE, EPC, H, 2, 6, 1, \"a\\[\"]b\"\r\n");
  // Placed as given, the line is the published one, quotes and all.
  EXPECT_EQ(commands::textLine(1, 2, "3", 0, 1, 1, "a\"b", commands::Placement::AsGiven),
            "TEXT 1, 2, \"3\", 0, 1, 1, \"a\"b\"\r\n");
}
