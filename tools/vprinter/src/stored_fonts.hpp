#pragma once
// TrueType fonts downloaded to the printer, opened from their stored
// bytes for TEXT. A face lives as long as Cairo uses it; it keeps its own
// copy of the bytes, so deleting or replacing the file cannot pull them
// from under it.

#include <cairo.h>

#include <map>
#include <string>

#include <orvante/bytes.hpp>

namespace orvante::vprinter {

class StoredFonts {
 public:
  StoredFonts() = default;
  ~StoredFonts();
  StoredFonts(const StoredFonts&) = delete;
  StoredFonts& operator=(const StoredFonts&) = delete;

  // The face of a stored file; throws CommandWarning when it is no font.
  cairo_font_face_t* face(const std::string& name, const Bytes& file);
  // The file was replaced or deleted.
  void forget(const std::string& name);

 private:
  std::map<std::string, cairo_font_face_t*> faces_;
};

}  // namespace orvante::vprinter
