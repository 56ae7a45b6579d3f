// The byte stream: any split of the same bytes gives the same labels,
// replies and journal; immediate commands are answered mid-line; the line
// end after a payload belongs to it.

#include <random>

#include "printer_rig.hpp"

using namespace orvante;
using namespace orvante::vprinter;
using namespace orvante::vprinter::testing;

namespace {

// A session of every framing the printer knows: lines ended by CR LF and
// by a lone LF, an immediate command inside a quoted text, BITMAP and
// DOWNLOAD payloads, a compressed packet, RFID answers and queries.
Bytes session() {
  const Bytes image = raster(4, 20, [](int x, int y) { return (x + y) % 3 == 0; });
  const Bytes bits = raster(2, 16, [](int x, int y) { return x == y; });
  return "SIZE 40 mm, 30 mm\r\nGAP 2 mm,0 mm\r\nCLS\r\n"
         "TEXT 10,10,\"2\",0,1,1,\"AB~!TCD\"\r\n"
         "BARCODE 10,60,\"128\",40,1,0,2,2,\"X-1\"\n"
         "BITMAP 200,10,2,16,1," +
         bits + "\r\nDOWNLOAD F,\"A.BMP\",3,a\r\n\r\nRFIDDETECT\r\n\r\n" +
         packet(100, 100, 4, 20, image) + "\r\nPRINT 1\r\n\x1b!?~!A~!F" +
         "QRCODE 250,120,M,3,A,0,\"SPLIT\"\r\nPRINT 1,2\n";
}

struct Outcome {
  std::string replies;
  std::vector<std::string> journal;
  std::vector<Bytes> labels;
};

// Feeds the session in pieces whose sizes `next` picks.
template <typename Next>
Outcome feedInPieces(const Bytes& bytes, Next next) {
  PrinterRig rig;
  Outcome outcome;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t size = std::min(next(), bytes.size() - at);
    outcome.replies += textOf(rig.engine.feed(1, ByteView(bytes).subspan(at, size)));
    at += size;
  }
  outcome.journal = rig.journal;
  for (const auto& label : rig.engine.takePrinted()) outcome.labels.push_back(label.rows());
  return outcome;
}

TEST(StreamParser, AnySplitGivesTheSameLabelsRepliesAndJournal) {
  const Bytes bytes = session();
  const Outcome whole = feedInPieces(bytes, [&] { return bytes.size(); });
  ASSERT_EQ(whole.labels.size(), 3u);
  ASSERT_NE(whole.replies.find("ORVANTE VP-1\r"), std::string::npos);
  for (const auto& line : whole.journal) EXPECT_EQ(line.find("warning"), std::string::npos) << line;

  const Outcome oneByOne = feedInPieces(bytes, [] { return std::size_t{1}; });
  EXPECT_EQ(oneByOne.replies, whole.replies);
  EXPECT_EQ(oneByOne.journal, whole.journal);
  EXPECT_EQ(oneByOne.labels, whole.labels);

  for (unsigned seed = 1; seed <= 5; ++seed) {
    std::mt19937 rng(seed);
    const Outcome random = feedInPieces(bytes, [&] { return std::size_t{1} + rng() % 40; });
    EXPECT_EQ(random.replies, whole.replies) << "seed " << seed;
    EXPECT_EQ(random.journal, whole.journal) << "seed " << seed;
    EXPECT_EQ(random.labels, whole.labels) << "seed " << seed;
  }
}

TEST(StreamParser, ImmediateCommandsAreAnsweredInsideALineThatStaysWhole) {
  PrinterRig rig;
  EXPECT_EQ(rig.feed("TEXT 10,10,\"3\",0,1,1,\"x~!"), "");
  EXPECT_EQ(rig.feed("Ty\"\r"), "ORVANTE VP-1\r");
  EXPECT_NE(rig.last().find("\"xy\""), std::string::npos) << rig.last();
  // ~! followed by a lower-case letter is text, not a command.
  EXPECT_EQ(rig.feed("TEXT 10,10,\"3\",0,1,1,\"~!t\"\r\n"), "");
  EXPECT_NE(rig.last().find("\"~!t\""), std::string::npos) << rig.last();
}

TEST(StreamParser, LineEndsAndKeywordsAreForgiving) {
  PrinterRig rig;
  rig.feed("cls\nbar 1 , 2 ,3, 4\r\n\r\n\n");
  ASSERT_EQ(rig.journal.size(), 2u);
  EXPECT_NE(rig.journal[1].find("\"command\":\"BAR\",\"arguments\":[\"1\",\"2\",\"3\",\"4\"]"),
            std::string::npos)
      << rig.journal[1];
}

TEST(StreamParser, TheQuoteEscapeStaysInsideItsQuotedField) {
  PrinterRig rig;
  // The escape's quote must not end the name: the header's commas follow it.
  rig.feed("DOWNLOAD F,\"A\\[\"]B\",3,xyz\r\n");
  EXPECT_NE(rig.last().find("\"payload\":{\"length\":3,"), std::string::npos) << rig.last();
  EXPECT_NE(rig.last().find("\"stored\":\"A\\\"B\""), std::string::npos) << rig.last();
  EXPECT_EQ(rig.feed("~!F"), "A\"B\r\x1a");
  // A quote right after \[ that no ] follows closes the field.
  rig.feed("DOWNLOAD \"C\\[\",2,ab\r\n");
  EXPECT_NE(rig.last().find("\"stored\":\"C\\\\[\""), std::string::npos) << rig.last();
  rig.feed("TEXT 10,10,\"3\",0,1,1,\"say \\[\"]hi\\[\"], ok\"\r\n");
  EXPECT_NE(rig.last().find("\"say \\\"hi\\\", ok\"],\"outcome\":\"ok\""), std::string::npos)
      << rig.last();
}

TEST(StreamParser, ThePayloadsLineEndIsNotAnEmptyLine) {
  PrinterRig rig;
  // The empty line after RFIDDETECT would answer the tag; the line end
  // closing the DOWNLOAD in between must not.
  EXPECT_EQ(rig.feed("RFIDDETECT\r\nDOWNLOAD \"X\",2,ab\r\n"), "");
  EXPECT_EQ(rig.feed("\r\n").substr(0, 4), "E280");
}

}  // namespace
