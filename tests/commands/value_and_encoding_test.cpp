// Command arguments and the text encodings commands are sent in.

#include <gtest/gtest.h>

#include <limits>

#include "commands/text_encoding.hpp"
#include "orvante/value.hpp"

using namespace orvante;

TEST(Value, TextFormIsTheStringOrTheShortestNumber) {
  EXPECT_EQ(Value(40).description(), "40");
  EXPECT_EQ(Value(2.5).description(), "2.5");
  EXPECT_EQ(Value(0.1).description(), "0.1");
  EXPECT_EQ(Value(-3).description(), "-3");
  EXPECT_EQ(Value(40.0).description(), "40");
  EXPECT_EQ(Value(1.0f / 3).description(), "0.3333333432674408");
  EXPECT_EQ(Value(std::numeric_limits<std::uint64_t>::max()).description(), "18446744073709551615");
  EXPECT_EQ(Value("3 mm").description(), "3 mm");
  EXPECT_EQ(Value(true).description(), "1");
}

TEST(Value, TruthFollowsThePlatformsStringAndNumberRules) {
  for (const char* yes : {"YES", "y", "true", "T", "1", "  +007", "-0t", "\t9", "000001"}) {
    EXPECT_TRUE(Value(yes).boolValue()) << yes;
  }
  for (const char* no : {"no", "false", "0", "", "   ", "00", "+", " x1", "N"}) {
    EXPECT_FALSE(Value(no).boolValue()) << no;
  }
  EXPECT_FALSE(Value(0).boolValue());
  EXPECT_TRUE(Value(-2).boolValue());
  EXPECT_FALSE(Value(0.0).boolValue());
  EXPECT_TRUE(Value(0.25).boolValue());
}

TEST(Value, FloatValueReadsTheLeadingNumber) {
  EXPECT_FLOAT_EQ(Value("0.5").floatValue(), 0.5f);
  EXPECT_FLOAT_EQ(Value("  -2.5 mm").floatValue(), -2.5f);
  EXPECT_FLOAT_EQ(Value("+1e2").floatValue(), 100.0f);
  EXPECT_FLOAT_EQ(Value("dark").floatValue(), 0.0f);
  EXPECT_FLOAT_EQ(Value(3).floatValue(), 3.0f);
}

TEST(Encoding, AsciiIsTheSameInEveryEncodingAndChineseIsNot) {
  const std::string line = "TEXT 10, 20, \"3\", 0, 1, 1, \"ABC 123\"\r\n";
  for (auto encoding : {Encoding::Utf8, Encoding::Big5, Encoding::Big5Hkscs,
                        Encoding::Gb18030, Encoding::MacRoman}) {
    EXPECT_EQ(encode(line, encoding), bytesOf(line));
  }
  const std::string chinese = "\xE4\xB8\xAD\xE6\x96\x87";  // "Chinese", two characters
  EXPECT_EQ(encode(chinese, Encoding::Big5), (Bytes{0xA4, 0xA4, 0xA4, 0xE5}));
  EXPECT_EQ(encode(chinese, Encoding::Big5Hkscs), (Bytes{0xA4, 0xA4, 0xA4, 0xE5}));
  EXPECT_EQ(encode(chinese, Encoding::Gb18030), (Bytes{0xD6, 0xD0, 0xCE, 0xC4}));
  EXPECT_EQ(encode(chinese, Encoding::Utf8), bytesOf(chinese));
}

TEST(Encoding, TextTheEncodingLacksBecomesNoBytes) {
  EXPECT_TRUE(encode("caf\xC3\xA9", Encoding::Big5).empty());
  EXPECT_TRUE(encode("\xF0\x9F\x98\x80", Encoding::Big5Hkscs).empty());
  EXPECT_TRUE(encode("\xFF\xFE", Encoding::Gb18030).empty());
  // A long text that needs more room than the first guess converts whole.
  std::string many;
  for (int i = 0; i < 5000; ++i) many += "\xE4\xB8\xAD";
  EXPECT_EQ(encode(many, Encoding::Gb18030).size(), 10000u);
}

TEST(Encoding, DecodingRejectsWhatIsNotTextInTheEncoding) {
  EXPECT_EQ(decodeUtf8(bytesOf("ok \xE4\xB8\xAD")), "ok \xE4\xB8\xAD");
  EXPECT_EQ(decodeUtf8(Bytes{0x41, 0xFF}), std::nullopt);
  EXPECT_EQ(decodeUtf8(Bytes{0xE4, 0xB8}), std::nullopt);
  EXPECT_EQ(decodeAscii(bytesOf("{SMBSOH|98}")), "{SMBSOH|98}");
  EXPECT_EQ(decodeAscii(Bytes{0xFF}), std::nullopt);
}
