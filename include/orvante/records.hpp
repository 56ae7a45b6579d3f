#pragma once
// Records to print, one label each: the rows of a CSV file with a header
// row, or the objects of a JSON-lines file. A record keeps its number (its
// place among the file's records, from 1) and the line of the file it
// starts on, which messages and the batch journal name.
//
//   for (const auto& record : orvante::readRecords("orders.csv")) {
//     if (const std::string* name = record.find("name")) std::cout << *name << '\n';
//   }

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

class Record {
 public:
  using Field = std::pair<std::string, std::string>;

  explicit Record(std::size_t number = 0, std::size_t line = 0)
      : number_(number), line_(line) {}

  std::size_t number() const { return number_; }
  std::size_t line() const { return line_; }

  // The field's value; null when the record has no field of that name.
  const std::string* find(std::string_view name) const;
  // Sets the field, replacing a value it had.
  void set(std::string name, std::string value);
  const std::vector<Field>& fields() const { return fields_; }

 private:
  std::size_t number_;
  std::size_t line_;
  std::vector<Field> fields_;
};

// CSV as RFC 4180 writes it: UTF-8 (a byte order mark is skipped), fields
// separated by commas, records by line ends (CR LF or LF); a field in double
// quotes may hold commas, line ends and quotes written twice. The first row
// names the fields; a row shorter than it lacks the last fields, blank lines
// are skipped. Throws std::invalid_argument "line N: why" for a file that is
// not such CSV (an unclosed quote, a quote inside an unquoted field, more
// fields than the header names, bytes that are not UTF-8).
std::vector<Record> readCsv(std::string_view text);

// One JSON object a line (blank lines skipped): its strings, numbers and
// booleans are the fields (as text: 12, 2.5, true), a null is no field.
// Throws std::invalid_argument "line N: why" for a line that is not such
// an object.
std::vector<Record> readJsonLines(std::string_view text);

// The records of a file: JSON lines when it is named *.jsonl, *.ndjson or
// *.json or starts with '{', CSV otherwise. Error when it cannot be read.
std::vector<Record> readRecords(const std::filesystem::path& file);

}  // namespace orvante

ORVANTE_API_END
