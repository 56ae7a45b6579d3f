// The pieces under the parser: where an LZSS stream ends, how a line
// splits into arguments, how the journal escapes what it shows, and how
// connections keep their own parse state.

#include <random>

#include "command_line.hpp"
#include "journal.hpp"
#include "lzss_extent.hpp"
#include "printer_rig.hpp"

using namespace orvante;
using namespace orvante::vprinter;
using namespace orvante::vprinter::testing;

namespace {

TEST(LzssExtent, FindsTheEndOfEveryEncodedStreamExactly) {
  std::mt19937 rng(7);
  for (int round = 0; round < 200; ++round) {
    const std::size_t size = rng() % 3000;
    Bytes input(size);
    // Runs and noise, so both matches and literals occur.
    for (std::size_t i = 0; i < size; ++i) {
      input[i] = rng() % 4 ? static_cast<std::uint8_t>(i / 40) : static_cast<std::uint8_t>(rng());
    }
    Bytes stream = lzss::encode(input);
    const std::size_t encoded = stream.size();
    stream.insert(stream.end(), {'P', 'R', 'I', 'N', 'T'});  // what follows the packet
    LzssExtent extent(size);
    std::size_t taken = 0;
    for (std::size_t at = 0; at < stream.size() && !extent.ended(); ++at) {
      taken += extent.take(ByteView(stream).subspan(at, 1));
    }
    ASSERT_TRUE(extent.ended()) << "size " << size;
    EXPECT_FALSE(extent.overran());
    EXPECT_EQ(taken, encoded) << "size " << size;
  }
  LzssExtent empty(0);
  EXPECT_TRUE(empty.ended());
  EXPECT_EQ(empty.take(viewOf("xyz")), 0u);
}

TEST(CommandLine, SplitsQuotedAndBareArguments) {
  const CommandLine text = CommandLine::parse("  text 10 , 20,\"3\",0,1,1,\"a, \\[\"]b\\[\"]\" ");
  EXPECT_EQ(text.keyword, "TEXT");
  ASSERT_EQ(text.arguments.size(), 7u);
  EXPECT_EQ(text.arguments[0].text, "10");
  EXPECT_EQ(text.arguments[1].text, "20");
  EXPECT_TRUE(text.arguments[2].quoted);
  EXPECT_EQ(text.arguments[6].text, "a, \"b\"");

  const CommandLine rfid = CommandLine::parse("RFID READ, 1, 0, 0, 4, 1, \"\"");
  ASSERT_EQ(rfid.arguments.size(), 7u);
  EXPECT_EQ(rfid.arguments[0].text, "READ");
  EXPECT_TRUE(rfid.arguments[6].quoted && rfid.arguments[6].text.empty());

  EXPECT_TRUE(CommandLine::parse("CLS").arguments.empty());
  EXPECT_TRUE(CommandLine::parse("   ").keyword.empty());
  // An unclosed quote runs to the end of the line.
  EXPECT_EQ(CommandLine::parse("X \"a,b").arguments.at(0).text, "a,b");
}

TEST(Journal, LinesAreValidJsonWhateverTheBytes) {
  JournalEntry entry;
  entry.connection = 3;
  entry.command = "TEXT";
  entry.arguments = {"quote\" back\\ tab\t", std::string("\x01\x7f", 2), "caf\xe9", "\xe2\x82\xac"};
  entry.warn("line\r\nend");
  EXPECT_EQ(entry.json(std::chrono::system_clock::time_point(std::chrono::milliseconds(1234))),
            "{\"time\":\"1970-01-01T00:00:01.234Z\",\"connection\":3,\"command\":\"TEXT\","
            "\"arguments\":[\"quote\\\" back\\\\ tab\\t\",\"\\u0001\\u007f\",\"caf\xc3\xa9\","
            "\"\xe2\x82\xac\"],\"outcome\":\"warning\",\"reason\":\"line\\r\\nend\"}");
}

TEST(Connections, EachKeepsItsOwnLineAndAllShareThePrinter) {
  PrinterRig rig;
  rig.feed("SIZE 10 mm, 10 mm\r\nBAR 0,0,", 1);
  rig.feed("BITMAP 8,8,1,2,0,", 2);  // connection 2 is inside a payload
  rig.feed("\x7f", 2);
  rig.feed("4,4\r\n", 1);  // completes connection 1's BAR
  rig.feed(std::string("\x7f\r\n", 3), 2);
  const PrintedLabel label = rig.printOne();
  EXPECT_EQ(label.printedIn(0, 0, 4, 4), 16u);
  EXPECT_EQ(label.printedIn(8, 8, 16, 10), 2u);  // one dot in each row
  EXPECT_EQ(label.printedIn(0, 0, 80, 80), 18u);
}

TEST(Resolution, ThreeHundredDpiCountsTwelveDotsAMillimetre) {
  Options options;
  options.dpi = 300;
  PrinterRig rig(options);
  rig.feed("SIZE 10 mm, 0.5\r\nTEXT 0,0,\"1\",0,1,1,\"M\"\r\n");
  const PrintedLabel label = rig.printOne();
  EXPECT_EQ(label.width(), 120);
  EXPECT_EQ(label.height(), 150);
  // Font 1's cell grows with the resolution: 12 x 18 dots.
  EXPECT_GT(label.printedIn(0, 0, 12, 18), 20u);
  EXPECT_EQ(label.printedIn(12, 0, 120, 150) + label.printedIn(0, 18, 12, 150), 0u);
}

TEST(StoredFonts, TextUsesADownloadedTrueTypeFont) {
  std::FILE* file = std::fopen("/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf", "rb");
  if (!file) GTEST_SKIP() << "no DejaVu Sans Bold here";
  Bytes font;
  for (int c; (c = std::fgetc(file)) != EOF;) font.push_back(static_cast<std::uint8_t>(c));
  std::fclose(file);
  PrinterRig rig;
  rig.feed("SIZE 40 mm, 20 mm\r\nDOWNLOAD F,\"BOLD.TTF\"," + std::to_string(font.size()) + ",");
  rig.feed(font + "\r\nTEXT 10,10,\"BOLD.TTF\",0,24,24,\"Wg\"\r\n");
  EXPECT_NE(rig.last().find("\"outcome\":\"ok\""), std::string::npos) << rig.last();
  const PrintedLabel label = rig.printOne();
  EXPECT_GT(label.printedIn(10, 10, 120, 90), 500u);
  // Replaced by bytes that are no font, it is reported and the label goes on.
  rig.feed("DOWNLOAD F,\"BOLD.TTF\",4,abcd\r\nTEXT 10,10,\"BOLD.TTF\",0,24,24,\"Wg\"\r\n");
  EXPECT_NE(rig.last().find("\\\"BOLD.TTF\\\" is not a font"), std::string::npos) << rig.last();
}

}  // namespace
