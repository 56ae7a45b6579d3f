#pragma once
// Fills a command's format: each "%@" takes the text form of the next
// argument, in order, as the platform's formatting does. Placed Checked,
// each argument is first checked, or escaped, by the kind of field it fills.

#include <initializer_list>
#include <string>
#include <string_view>

#include <orvante/commands.hpp>
#include <orvante/value.hpp>

#include "fields.hpp"

namespace orvante {

enum class FieldKind {
  Token,  // unquoted: a number or a code word
  Text,   // between quotes: anything a quoted field can carry
  Name,   // between quotes: a font, barcode type or file name
};

struct Field {
  std::string_view argument;  // how an error names it: "the content"
  const Value& value;
  FieldKind kind = FieldKind::Token;
};

inline std::string placed(const Field& field, commands::Placement placement) {
  std::string text = field.value.description();
  if (placement == commands::Placement::AsGiven) return text;
  switch (field.kind) {
    case FieldKind::Token:
      fields::requireToken(field.argument, text);
      return text;
    case FieldKind::Name:
      fields::requireName(field.argument, text);
      return text;
    case FieldKind::Text:
      break;
  }
  return fields::quoted(field.argument, text);
}

inline std::string fill(std::string_view format, std::initializer_list<Field> arguments,
                        commands::Placement placement = commands::Placement::AsGiven) {
  std::string text;
  auto next = arguments.begin();
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] == '%' && i + 1 < format.size() && format[i + 1] == '@' &&
        next != arguments.end()) {
      text += placed(*next++, placement);
      ++i;
    } else {
      text += format[i];
    }
  }
  return text;
}

}  // namespace orvante
