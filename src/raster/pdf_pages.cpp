#include "pdf_pages.hpp"

#include <exception>

#include "../pdf/page_drawing.hpp"
#include "cairo_image.hpp"
#include "pixel_budget.hpp"

namespace orvante::raster {
namespace {

// The page transform uses the resolution in single precision, the size in
// double: the two differ only for resolutions no printer has.
double pageScale(std::int32_t dpi) {
  return static_cast<double>(static_cast<float>(dpi)) / 72;
}

}  // namespace

// Poppler draws pages top-down already, so the flip that makes a
// bottom-up page upright is part of its drawing, not of this transform.
Image pdfPageAtResolution(const PdfDocument& document, int pageNumber, std::int32_t dpi) {
  const Size page = pdf::pageSize(document, pageNumber).value_or(Size{});
  const auto pixels =
      budgetedPixels(page.width * dpi / 72, page.height * dpi / 72, "a PDF page");
  return drawImage(pixels.width, pixels.height, [&](cairo_t* cairo) {
    const double scale = pageScale(dpi);
    cairo_scale(cairo, scale, scale);
    // The white rectangle is given in page units, as the page is; below 72
    // dpi it covers only part of the image, and the bitmap packet's own
    // white fill covers the rest.
    cairo_save(cairo);
    cairo_set_source_rgb(cairo, 1, 1, 1);
    cairo_rectangle(cairo, 0, 0, pixels.width, pixels.height);
    cairo_fill(cairo);
    pdf::drawPage(document, pageNumber, cairo);
    cairo_restore(cairo);
  });
}

Image pdfPageStretched(const PdfDocument& document, int pageNumber, std::int32_t width,
                       std::int32_t height, std::int32_t dpi) {
  const Size page = pdf::pageSize(document, pageNumber).value_or(Size{});
  const bool stretch = width > 0 && height > 0;
  const auto pixels = stretch ? budgetedPixels(width, height, "a PDF page")
                              : budgetedPixels(page.width * dpi / 72, page.height * dpi / 72,
                                               "a PDF page");
  return drawImage(pixels.width, pixels.height, [&](cairo_t* cairo) {
    cairo_set_source_rgb(cairo, 1, 1, 1);
    cairo_paint(cairo);
    if (page.width <= 0 || page.height <= 0) return;
    if (stretch) {
      cairo_scale(cairo, pixels.width / page.width, pixels.height / page.height);
    } else {
      cairo_scale(cairo, pageScale(dpi), pageScale(dpi));
    }
    pdf::drawPage(document, pageNumber, cairo);
  });
}

}  // namespace orvante::raster

namespace orvante {

Image PdfDocument::drawPage(int page, int width, int height) const {
  if (page < 1 || page > pageCount() || width <= 0 || height <= 0) return {};
  try {
    return raster::pdfPageStretched(*this, page, width, height, 72);
  } catch (const std::exception&) {
    return {};  // past the pixel budget
  }
}

}  // namespace orvante
