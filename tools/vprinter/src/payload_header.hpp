#pragma once
// Commands whose binary payload follows their text on the same line:
// BITMAP X,Y,WIDTHBYTES,HEIGHT,MODE, and DOWNLOAD [F,]"NAME",SIZE, . The
// parser asks after each unquoted comma whether the line so far is such a
// header, and how many payload bytes follow it.

#include <cstddef>
#include <optional>
#include <string_view>

namespace orvante::vprinter {

enum class PayloadKind { Bitmap, Download };

struct PayloadHeader {
  PayloadKind kind;
  std::size_t length;
};

// The header that `line` (ending with its last comma) completes, if any.
// A BITMAP or DOWNLOAD line with fields that are not numbers completes
// none: it then runs to its line end and is journaled as malformed.
std::optional<PayloadHeader> payloadHeader(std::string_view line);

}  // namespace orvante::vprinter
