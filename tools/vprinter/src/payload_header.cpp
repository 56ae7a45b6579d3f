#include "payload_header.hpp"

#include "command_line.hpp"

namespace orvante::vprinter {

namespace {

// A count of bytes; none for anything but plain digits or past the limit.
std::optional<std::size_t> count(const Argument& field) {
  if (field.quoted || field.text.empty() || field.text.size() > 9) return std::nullopt;
  std::size_t value = 0;
  for (char c : field.text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<std::size_t>(c - '0');
  }
  return value;
}

std::optional<PayloadHeader> bitmapHeader(const CommandLine& command) {
  // X, Y, WIDTHBYTES, HEIGHT, MODE and the empty field after the last comma.
  if (command.arguments.size() != 6) return std::nullopt;
  const auto widthBytes = count(command.arguments[2]);
  const auto height = count(command.arguments[3]);
  if (!widthBytes || !height) return std::nullopt;
  return PayloadHeader{PayloadKind::Bitmap, *widthBytes * *height};
}

std::optional<PayloadHeader> downloadHeader(const CommandLine& command) {
  const auto& fields = command.arguments;
  // DOWNLOAD "NAME",SIZE, or DOWNLOAD F,"NAME",SIZE, (memory F, E or R).
  const std::size_t name = !fields.empty() && !fields[0].quoted && fields[0].text.size() == 1 ? 1 : 0;
  if (fields.size() != name + 3 || !fields[name].quoted) return std::nullopt;
  const auto size = count(fields[name + 1]);
  if (!size) return std::nullopt;
  return PayloadHeader{PayloadKind::Download, *size};
}

}  // namespace

std::optional<PayloadHeader> payloadHeader(std::string_view line) {
  const std::string_view keyword = leadingKeyword(line);
  if (keyword.size() != 6 && keyword.size() != 8) return std::nullopt;
  const std::string upper = upperCase(keyword);
  if (upper != "BITMAP" && upper != "DOWNLOAD") return std::nullopt;
  const CommandLine command = CommandLine::parse(line);
  return upper == "BITMAP" ? bitmapHeader(command) : downloadHeader(command);
}

}  // namespace orvante::vprinter
