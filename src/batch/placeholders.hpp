#pragma once
// A template's text with placeholders: ${field}, ${field:FORMAT}, ${n}
// (the record's number) and $$ (a dollar sign), filled from a record.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orvante/records.hpp>

namespace orvante::templating {

using Defaults = std::map<std::string, std::string, std::less<>>;

// One printf conversion, checked before it is ever used: optional flags
// (-+ #0), a width and a precision of at most two digits each, and one of
// d i u x X o f e g. Nothing else: no text around it, no %n, no %s.
class NumberFormat {
 public:
  // None when the text is not one such conversion.
  static std::optional<NumberFormat> parse(std::string_view text);
  // The value formatted; std::invalid_argument saying why when the value
  // is not the number the conversion takes.
  std::string apply(std::string_view value) const;
  const std::string& text() const { return text_; }

 private:
  std::string text_;  // as written
  std::string spec_;  // as given to snprintf, with its length modifier
  char conversion_ = 'd';
};

class PlaceholderText {
 public:
  // std::invalid_argument saying what is wrong with a placeholder.
  static PlaceholderText parse(std::string_view text);

  bool constant() const { return pieces_.size() <= 1 && (pieces_.empty() || !pieces_[0].placeholder); }
  // The text of a constant one.
  std::string literal() const { return pieces_.empty() ? std::string() : pieces_[0].text; }
  // Appends the text filled from the record to `out`; std::invalid_argument
  // saying why when a field is missing without a default, or a formatted
  // value is not a number.
  void fill(const Record& record, const Defaults& defaults, std::string& out) const;
  // The fields its placeholders name (not n).
  void addFields(std::vector<std::string>& names) const;

 private:
  struct Piece {
    bool placeholder = false;
    std::string text;  // the literal text, or the placeholder's field
    std::optional<NumberFormat> format;
  };
  std::vector<Piece> pieces_;
};

}  // namespace orvante::templating
