#pragma once
// Internal: the pages of a PdfDocument, for the library's page rendering.
// Exported from orvante::pdf for orvante::orvante alone.

#include <cairo.h>

#include <optional>

#include <orvante/export.hpp>
#include <orvante/image.hpp>
#include <orvante/pdf.hpp>

namespace orvante::pdf {

// The page's size in points (1/72 inch), or none when the document has no
// page with that number. Pages count from 1. The size is that of the
// visible page (its crop box), turned by the page's own rotation.
ORVANTE_EXPORT std::optional<Size> pageSize(const PdfDocument& document, int pageNumber);

// Draws the page's content (no annotations, as when printing) onto the
// context, whose user space is the page's in points, origin at its top
// left, y running down. Draws nothing when there is no such page.
ORVANTE_EXPORT void drawPage(const PdfDocument& document, int pageNumber, cairo_t* context);

}  // namespace orvante::pdf
