// Records from CSV and JSON lines, each with its number and first line.

#include <orvante/error.hpp>
#include <orvante/records.hpp>

#include <nlohmann/json.hpp>

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "utf8.hpp"

namespace orvante {
namespace {

[[noreturn]] void refuse(std::size_t line, const std::string& why) {
  throw std::invalid_argument("line " + std::to_string(line) + ": " + why);
}

// The line of the text that byte `at` stands on, from 1.
std::size_t lineOf(std::string_view text, std::size_t at) {
  std::size_t line = 1;
  for (std::size_t i = 0; i < at && i < text.size(); ++i) line += text[i] == '\n';
  return line;
}

void requireUtf8(std::string_view text) {
  const std::size_t bad = templating::firstInvalidUtf8(text);
  if (bad == std::string_view::npos) return;
  char byte[8];
  std::snprintf(byte, sizeof byte, "0x%02X", static_cast<unsigned char>(text[bad]));
  refuse(lineOf(text, bad), std::string("the file is not UTF-8 text (the byte ") + byte + ")");
}

// Reads CSV rows one at a time, counting lines as it goes.
class CsvRows {
 public:
  explicit CsvRows(std::string_view text) : text_(text) {
    if (text_.starts_with("\xEF\xBB\xBF")) at_ = 3;
  }

  // The next row that is not blank, and the line it starts on; false at the end.
  bool next(std::vector<std::string>& row, std::size_t& startLine) {
    for (;;) {
      if (at_ >= text_.size()) return false;
      startLine = line_;
      row.clear();
      readRow(row);
      if (!(row.size() == 1 && row[0].empty() && !quotedLast_)) return true;
    }
  }

 private:
  void endLine() {
    if (text_[at_] == '\r' && at_ + 1 < text_.size() && text_[at_ + 1] == '\n') ++at_;
    ++at_;
    ++line_;
  }

  void readRow(std::vector<std::string>& row) {
    for (;;) {
      std::string field;
      quotedLast_ = at_ < text_.size() && text_[at_] == '"';
      if (quotedLast_) {
        readQuoted(field);
      } else {
        readPlain(field);
      }
      row.push_back(std::move(field));
      if (at_ >= text_.size()) return;
      if (text_[at_] == ',') {
        ++at_;
        continue;
      }
      endLine();  // a CR or LF: readQuoted and readPlain stop at nothing else
      return;
    }
  }

  void readPlain(std::string& field) {
    const std::size_t end = text_.find_first_of(",\r\n\"", at_);
    const std::size_t stop = end == std::string_view::npos ? text_.size() : end;
    if (stop < text_.size() && text_[stop] == '"') {
      refuse(line_, "a quote inside an unquoted field (put the field in quotes and write each "
                    "quote in it twice)");
    }
    field.assign(text_.substr(at_, stop - at_));
    at_ = stop;
  }

  void readQuoted(std::string& field) {
    const std::size_t opened = line_;
    ++at_;
    for (;;) {
      const std::size_t quote = text_.find('"', at_);
      if (quote == std::string_view::npos) {
        refuse(opened, "the quoted field that starts on this line is not closed");
      }
      const std::string_view part = text_.substr(at_, quote - at_);
      for (char c : part) line_ += c == '\n';
      field.append(part);
      at_ = quote + 1;
      if (at_ < text_.size() && text_[at_] == '"') {
        field += '"';
        ++at_;
        continue;
      }
      if (at_ < text_.size() && text_[at_] != ',' && text_[at_] != '\r' && text_[at_] != '\n') {
        refuse(line_, "text after a field's closing quote (a quote inside quotes is written twice)");
      }
      return;
    }
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t line_ = 1;
  bool quotedLast_ = false;
};

std::string jsonField(const std::string& name, const nlohmann::json& value, std::size_t line) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_number() || value.is_boolean()) return value.dump();
  refuse(line, "\"" + name + "\" is " + (value.is_object() ? "an object" : "an array") +
                   ": a field holds text, a number or true or false");
}

}  // namespace

const std::string* Record::find(std::string_view name) const {
  for (const auto& [key, value] : fields_) {
    if (key == name) return &value;
  }
  return nullptr;
}

void Record::set(std::string name, std::string value) {
  for (auto& [key, old] : fields_) {
    if (key == name) {
      old = std::move(value);
      return;
    }
  }
  fields_.emplace_back(std::move(name), std::move(value));
}

std::vector<Record> readCsv(std::string_view text) {
  requireUtf8(text);
  CsvRows rows(text);
  std::vector<std::string> header, row;
  std::size_t line = 0;
  if (!rows.next(header, line)) return {};
  for (std::size_t i = 0; i < header.size(); ++i) {
    if (header[i].empty()) refuse(line, "column " + std::to_string(i + 1) + " of the header has no name");
    for (std::size_t j = 0; j < i; ++j) {
      if (header[j] == header[i]) refuse(line, "two columns are named \"" + header[i] + "\"");
    }
  }
  std::vector<Record> records;
  while (rows.next(row, line)) {
    if (row.size() > header.size()) {
      refuse(line, "the row has " + std::to_string(row.size()) + " fields, the header names " +
                       std::to_string(header.size()));
    }
    Record& record = records.emplace_back(records.size() + 1, line);
    for (std::size_t i = 0; i < row.size(); ++i) record.set(header[i], std::move(row[i]));
  }
  return records;
}

std::vector<Record> readJsonLines(std::string_view text) {
  std::vector<Record> records;
  std::size_t line = 0;
  for (std::size_t at = 0; at < text.size();) {
    ++line;
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::string_view content = text.substr(at, end - at);
    at = end + 1;
    if (content.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    nlohmann::json object;
    try {
      object = nlohmann::json::parse(content);
    } catch (const nlohmann::json::exception& error) {
      std::string why = error.what();
      // nlohmann's messages start with their own code in brackets.
      if (const auto close = why.find("] "); why.starts_with("[") && close != std::string::npos) {
        why.erase(0, close + 2);
      }
      refuse(line, "not JSON: " + why);
    }
    if (!object.is_object()) refuse(line, "a record is a JSON object, {\"name\": \"value\", ...}");
    Record& record = records.emplace_back(records.size() + 1, line);
    for (const auto& [name, value] : object.items()) {
      if (!value.is_null()) record.set(name, jsonField(name, value, line));
    }
  }
  return records;
}

std::vector<Record> readRecords(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw Error("cannot read " + file.string());
  const std::string text(std::istreambuf_iterator<char>(in), {});
  const std::string extension = file.extension().string();
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  const bool jsonLines = extension == ".jsonl" || extension == ".ndjson" || extension == ".json" ||
                         (first != std::string::npos && text[first] == '{');
  return jsonLines ? readJsonLines(text) : readCsv(text);
}

}  // namespace orvante
