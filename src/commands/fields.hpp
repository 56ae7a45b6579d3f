#pragma once
// The checks and the escape of the values a command line carries, for the
// builders placing them Checked (see Placement in <orvante/commands.hpp>).
// Each failure is std::invalid_argument naming the argument and where in it
// the first offending character stands.

#include <string>
#include <string_view>

#include <orvante/bytes.hpp>

namespace orvante::fields {

// The text between a field's double quotes: each quote becomes the
// language's escape \["]; control characters and "~!" are refused.
std::string quoted(std::string_view argument, std::string_view text);

// A value the line carries without quotes: a number or a code word.
void requireToken(std::string_view argument, std::string_view text);

// A font, barcode type or stored file name.
void requireName(std::string_view argument, std::string_view text);

// The same checks on text already in the encoding it is sent in: a
// multi-byte encoding may give "~!" where the text had none.
void requireQuotable(std::string_view argument, ByteView encoded);

}  // namespace orvante::fields
