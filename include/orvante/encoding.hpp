#pragma once
// The text encodings command lines are sent in.

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

enum class Encoding {
  Utf8,       // printer-font text by default, raw commands, queries
  Big5,
  Gb18030,
  Big5Hkscs,  // most command lines and the download header
  MacRoman,   // the BITMAP command's header, as the session sends it
};

}  // namespace orvante

ORVANTE_API_END
