// PDF pages printed as bitmaps, one label a page.

#include <orvante/session.hpp>

#include <functional>
#include <optional>

#include "../raster/pdf_pages.hpp"
#include "failure_report.hpp"

using orvante::Image;
using orvante::PdfDocument;

namespace {

using PageDrawing = std::function<Image(int pageNumber)>;

// Every page, the count asked again before each one, or only `onlyPage`;
// each drawn, preceded by "CLS" when asked, and sent with SendPic.
std::int64_t printPages(ORVANTESDK& session, const PdfDocument& document,
                        std::optional<std::int32_t> onlyPage, bool clearFirst,
                        const PageDrawing& draw, std::int32_t x, std::int32_t y) {
  try {
    auto printPage = [&](int pageNumber) {
      const Image image = draw(pageNumber);
      if (clearFirst) session.sendcommand("CLS\r\n");
      session.SendPic(image, x, y);
    };
    if (onlyPage) {
      printPage(*onlyPage);
    } else {
      for (int page = 1; page <= document.pageCount(); ++page) printPage(page);
    }
    return 1;
  } catch (const std::exception& failure) {
    return orvante::reportFailure(failure);
  }
}

PageDrawing atResolution(const PdfDocument& document, std::int32_t dpi) {
  return [&document, dpi](int page) {
    return orvante::raster::pdfPageAtResolution(document, page, dpi);
  };
}

PageDrawing stretched(const PdfDocument& document, std::int32_t width, std::int32_t height,
                      std::int32_t dpi) {
  return [&document, width, height, dpi](int page) {
    return orvante::raster::pdfPageStretched(document, page, width, height, dpi);
  };
}

}  // namespace

std::int64_t ORVANTESDK::printPDFbyFile(const PdfDocument& document, std::int32_t x,
                                        std::int32_t y, std::int32_t printer_dpi) {
  return printPages(*this, document, std::nullopt, false, atResolution(document, printer_dpi), x,
                    y);
}

std::int64_t ORVANTESDK::printPDFbyFile(const PdfDocument& document, std::int32_t x,
                                        std::int32_t y, std::int32_t printer_dpi,
                                        std::int32_t page_index) {
  return printPages(*this, document, page_index, false, atResolution(document, printer_dpi), x,
                    y);
}

std::int64_t ORVANTESDK::printPDFbyFile_Resize(const PdfDocument& document, std::int32_t x,
                                               std::int32_t y, std::int32_t width,
                                               std::int32_t height, std::int32_t printer_dpi) {
  return printPages(*this, document, std::nullopt, true,
                    stretched(document, width, height, printer_dpi), x, y);
}

std::int64_t ORVANTESDK::printPDFbyFile_Resize(const PdfDocument& document, std::int32_t x,
                                               std::int32_t y, std::int32_t width,
                                               std::int32_t height, std::int32_t printer_dpi,
                                               std::int32_t page_index) {
  return printPages(*this, document, page_index, true,
                    stretched(document, width, height, printer_dpi), x, y);
}

std::int64_t ORVANTESDK::printPDFbyPath(const std::string& path, std::int32_t x, std::int32_t y,
                                        std::int32_t printer_dpi) {
  return printPDFbyFile(PdfDocument::open(path), x, y, printer_dpi);
}

std::int64_t ORVANTESDK::printPDFbyPath(const std::string& path, std::int32_t x, std::int32_t y,
                                        std::int32_t printer_dpi, std::int32_t page_index) {
  return printPDFbyFile(PdfDocument::open(path), x, y, printer_dpi, page_index);
}

std::int64_t ORVANTESDK::printPDFbyPath_Resize(const std::string& path, std::int32_t x,
                                               std::int32_t y, std::int32_t width,
                                               std::int32_t height, std::int32_t printer_dpi) {
  return printPDFbyFile_Resize(PdfDocument::open(path), x, y, width, height, printer_dpi);
}

std::int64_t ORVANTESDK::printPDFbyPath_Resize(const std::string& path, std::int32_t x,
                                               std::int32_t y, std::int32_t width,
                                               std::int32_t height, std::int32_t printer_dpi,
                                               std::int32_t page_index) {
  return printPDFbyFile_Resize(PdfDocument::open(path), x, y, width, height, printer_dpi,
                               page_index);
}

std::int64_t ORVANTESDK::getPDFPageCountbyPath(const std::string& path) {
  return getPDFPageCountbyFile(PdfDocument::open(path));
}

std::int64_t ORVANTESDK::getPDFPageCountbyFile(const PdfDocument& document) {
  return document.pageCount();
}
