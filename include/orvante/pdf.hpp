#pragma once
// PDF documents for the session's PDF printing operations.
//
// PDF support lives in its own library, orvante::pdf (it uses Poppler, which
// is GPL); orvante::orvante links it unless the library was configured with
// ORVANTE_WITH_PDF=OFF, in which case the PDF operations of ORVANTESDK
// return -1.
//
// A page is drawn at most kMaxRenderedPixels (100 megapixels) and
// kMaxRenderedSide (32767) pixels a side, see <orvante/image.hpp>; a page
// that would need more at the asked resolution is not printed and its
// operation returns -1.

#include <memory>
#include <optional>
#include <string>

#include <orvante/bytes.hpp>
#include <orvante/export.hpp>
#include <orvante/image.hpp>

ORVANTE_API_BEGIN

namespace orvante {

class PdfDocument;

namespace pdf {
struct Access;
}

// A shared handle: copies refer to the same open document, which closes
// with the last copy. Safe to use from several threads; pages are drawn one
// at a time.
class PdfDocument {
 public:
  // A document that could not be opened; it has 0 pages.
  PdfDocument() = default;

  // Opens the file; a missing, unreadable or damaged file, or one locked by
  // a password, gives a document with 0 pages.
  static PdfDocument open(const std::string& path);
  // The same from bytes in memory (copied).
  static PdfDocument fromData(ByteView bytes);

  int pageCount() const;
  // The page's size in points (1/72 inch), counted from 1: its visible
  // (crop) box turned by its own rotation. None for a page it lacks.
  std::optional<Size> pageSize(int page) const;
  bool isOpen() const { return impl_ != nullptr; }
  // The page (counted from 1) drawn on white into exactly width x height
  // pixels, stretched to them. The empty image for a page the document
  // lacks, a size that is not positive or past kMaxRenderedPixels, and in
  // a build without PDF support.
  Image drawPage(int page, int width, int height) const;

 private:
  friend struct pdf::Access;
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace orvante

ORVANTE_API_END
