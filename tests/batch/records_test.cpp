// Records from CSV (RFC 4180 quoting, UTF-8, a BOM) and JSON lines: each
// field as written, each record with its number and first line, and files
// that are not such data refused with the line.

#include <gtest/gtest.h>

#include <fstream>

#include <orvante/error.hpp>
#include <orvante/records.hpp>

using namespace orvante;

namespace {

std::string refusal(const std::function<void()>& read) {
  try {
    read();
  } catch (const std::invalid_argument& refused) {
    return refused.what();
  }
  return "accepted";
}

std::string field(const Record& record, const char* name) {
  const std::string* value = record.find(name);
  return value ? *value : "(none)";
}

}  // namespace

TEST(Csv, QuotedFieldsKeepCommasQuotesLineEndsAndChineseText) {
  const auto records = readCsv(
      "\xEF\xBB\xBFname,address,note\r\n"
      "\"Wang, Li\",\"北京市 \"\"朝阳\"\" 区\",plain\r\n"
      "\"two\nlines\",\"a\r\nb\",\r\n"
      "\r\n"
      "short\n"
      "\"\",,\"\"");
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(field(records[0], "name"), "Wang, Li");
  EXPECT_EQ(field(records[0], "address"), "北京市 \"朝阳\" 区");
  EXPECT_EQ(field(records[0], "note"), "plain");
  EXPECT_EQ(field(records[1], "name"), "two\nlines");
  EXPECT_EQ(field(records[1], "address"), "a\r\nb");
  EXPECT_EQ(field(records[1], "note"), "");
  // A short row lacks its last fields, which a template's defaults fill.
  EXPECT_EQ(field(records[2], "name"), "short");
  EXPECT_EQ(field(records[2], "address"), "(none)");
  EXPECT_EQ(field(records[3], "name"), "");
  // Numbers count records; lines count the file's lines, blank ones too.
  for (std::size_t i = 0; i < records.size(); ++i) EXPECT_EQ(records[i].number(), i + 1);
  EXPECT_EQ(records[0].line(), 2u);
  EXPECT_EQ(records[1].line(), 3u);
  EXPECT_EQ(records[2].line(), 7u);
  EXPECT_EQ(records[3].line(), 8u);
}

TEST(Csv, FilesThatAreNotCsvAreRefusedWithTheLine) {
  const std::pair<const char*, const char*> cases[] = {
      {"a,b\n1,\"open\n\n", "line 2: the quoted field that starts on this line is not closed"},
      {"a,b\n1,x\"y\n",
       "line 2: a quote inside an unquoted field (put the field in quotes and write each quote in "
       "it twice)"},
      {"a,b\n\"1\nx\"z,2\n",
       "line 3: text after a field's closing quote (a quote inside quotes is written twice)"},
      {"a,b\n1,2\n1,2,3\n", "line 3: the row has 3 fields, the header names 2"},
      {"a,,c\n", "line 1: column 2 of the header has no name"},
      {"a,a\n", "line 1: two columns are named \"a\""},
      {"a\nok\n\xFF\n", "line 3: the file is not UTF-8 text (the byte 0xFF)"},
  };
  for (const auto& [text, message] : cases) {
    EXPECT_EQ(refusal([&] { readCsv(text); }), message) << text;
  }
}

TEST(JsonLines, StringsNumbersAndBooleansAreFieldsAndNullIsNone) {
  const auto records = readJsonLines(
      "{\"name\": \"Li \\\"Wei\\\"\", \"qty\": 3, \"price\": 2.5, \"vip\": true, \"note\": null}\n"
      "\n"
      "{\"name\": \"北京\"}\r\n");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(field(records[0], "name"), "Li \"Wei\"");
  EXPECT_EQ(field(records[0], "qty"), "3");
  EXPECT_EQ(field(records[0], "price"), "2.5");
  EXPECT_EQ(field(records[0], "vip"), "true");
  EXPECT_EQ(field(records[0], "note"), "(none)");
  EXPECT_EQ(records[1].number(), 2u);
  EXPECT_EQ(records[1].line(), 3u);
  EXPECT_EQ(field(records[1], "name"), "北京");

  EXPECT_EQ(refusal([] { readJsonLines("{}\n[1, 2]\n"); }),
            "line 2: a record is a JSON object, {\"name\": \"value\", ...}");
  EXPECT_EQ(refusal([] { readJsonLines("{\"to\": {\"city\": \"x\"}}"); }),
            "line 1: \"to\" is an object: a field holds text, a number or true or false");
  EXPECT_TRUE(refusal([] { readJsonLines("{}\n{\"a\": }\n"); }).starts_with("line 2: not JSON: parse error"));
}

TEST(Records, AFileIsReadAsJsonLinesByItsNameOrFirstCharacterElseAsCsv) {
  const std::string folder = ::testing::TempDir();
  std::ofstream(folder + "records.csv") << "name\nAda\n";
  std::ofstream(folder + "records.jsonl") << "{\"name\": \"Ada\"}\n";
  std::ofstream(folder + "records.txt") << "  {\"name\": \"Ada\"}\n";
  for (const char* name : {"records.csv", "records.jsonl", "records.txt"}) {
    const auto records = readRecords(folder + name);
    ASSERT_EQ(records.size(), 1u) << name;
    EXPECT_EQ(field(records[0], "name"), "Ada") << name;
  }
  EXPECT_THROW(readRecords(folder + "absent.csv"), Error);
}
