#pragma once
// orvante::Template: a label's layout in a JSON file, filled with one
// record to make each label of a batch.
//
//   {"size": [100, 60], "gap": 2, "dpi": 203, "copies": 1,
//    "defaults": {"city": "Berlin"},
//    "elements": [
//      {"type": "text", "x": 20, "y": 20, "font": "3", "text": "${name}"},
//      {"type": "qr", "x": 560, "y": 20, "cell": 6, "data": "https://example.com/p/${sku}"},
//      {"type": "text", "x": 20, "y": 400, "font": "2", "text": "No. ${n:%06d}"}]}
//
// Sizes and gaps are in mm ("blackMark" in place of "gap"), positions in
// dots. In text, ${field} takes the record's value of the field (or the
// template's default for it), ${field:FORMAT} a number formatted as one
// printf conversion (%06d, %.2f, %x...), ${n} the record's number from 1,
// and $$ is a dollar sign. The elements and their keys:
//
//   text     x y text, and font (a printer font; rotation xMultiplier
//            yMultiplier) or family and dots (an installed font, drawn on
//            the host; rotation bold italic)
//   block    x y width height font text; rotation xMultiplier yMultiplier
//            lineSpacing align (left, center, right): text wrapped in lines
//   barcode  x y symbology height code; readable rotation narrow wide
//   qr       x y data; cell errorCorrection (L M Q H) rotation
//   image    x y path; dither (threshold fs atkinson ordered ordered8 edge) threshold
//   box      x y x2 y2; thickness radius
//   line     x y width height (a bar)
//   reverse, erase  x y width height
//   circle   x y diameter; thickness
//
// The template is checked whole when it is read; images are decoded and
// dithered then, once. Filling a record checks what it puts in as Label
// does: text prints as given or the record is refused, never a command.

#include <cstddef>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <orvante/export.hpp>
#include <orvante/label.hpp>
#include <orvante/records.hpp>

ORVANTE_API_BEGIN

namespace orvante {

// A template that cannot be used. The message names where:
// "elements[3].x: 900 is outside the label of 800 x 480 dots", or "size: ..."
// for the template's own keys (element() is then -1).
class TemplateError : public std::invalid_argument {
 public:
  TemplateError(int element, std::string key, const std::string& why);
  int element() const { return element_; }
  const std::string& key() const { return key_; }

 private:
  int element_;
  std::string key_;
};

// A record that cannot be printed: "line 7: elements[1].text: the record
// has no field "zip" and the template no default for it".
class RecordError : public std::invalid_argument {
 public:
  RecordError(std::size_t line, const std::string& reason);
  std::size_t line() const { return line_; }
  // The message without its line.
  const std::string& reason() const { return reason_; }

 private:
  std::size_t line_;
  std::string reason_;
};

class Template {
 public:
  // Reads and checks the file; image paths are relative to its folder.
  // Error when it cannot be read, TemplateError when it is wrong.
  static Template load(const std::filesystem::path& file);
  // The same from the JSON text, image paths relative to `folder`.
  static Template parse(std::string_view json, const std::filesystem::path& folder = ".");

  // The label of the record: its placeholders filled, closed by one PRINT
  // of the record's "copies" field (the template's copies without one).
  // Throws RecordError.
  Label fill(const Record& record) const;

  // The copies the record asks for: its "copies" field, or the template's
  // copies without one. Throws RecordError.
  int copies(const Record& record) const;

  int dpi() const;
  // The fields its placeholders name, in order of appearance.
  const std::vector<std::string>& fields() const;
  // The same for templates of the same content: a digest of it.
  const std::string& fingerprint() const;

 private:
  struct Compiled;
  explicit Template(std::shared_ptr<const Compiled> compiled);
  std::shared_ptr<const Compiled> compiled_;
};

}  // namespace orvante

ORVANTE_API_END
