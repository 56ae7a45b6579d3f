#pragma once
// Internal: PDF pages drawn into images for the bitmap packet.

#include <cstdint>

#include <orvante/image.hpp>
#include <orvante/pdf.hpp>

namespace orvante::raster {

// The page on white at the printer's resolution: (page size x dpi / 72)
// pixels, upright. A page number the document lacks gives the empty image.
Image pdfPageAtResolution(const PdfDocument& document, int pageNumber, std::int32_t dpi);

// The page stretched to exactly width x height pixels when both are
// positive (the aspect ratio is not kept), else as pdfPageAtResolution.
// Every pixel is opaque.
Image pdfPageStretched(const PdfDocument& document, int pageNumber, std::int32_t width,
                       std::int32_t height, std::int32_t dpi);

}  // namespace orvante::raster
