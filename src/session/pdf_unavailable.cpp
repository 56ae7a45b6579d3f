// The PDF operations of a build configured without PDF support
// (ORVANTE_WITH_PDF=OFF): each logs why and fails.

#include <orvante/exception.hpp>
#include <orvante/session.hpp>

#include "failure_report.hpp"

using orvante::PdfDocument;

namespace {

std::int64_t unavailable() {
  return orvante::reportFailure(
      orvante::Exception("PdfUnavailable", "this build of the library prints no PDF"));
}

}  // namespace

std::int64_t ORVANTESDK::printPDFbyPath(const std::string&, std::int32_t, std::int32_t,
                                        std::int32_t) {
  return unavailable();
}
std::int64_t ORVANTESDK::printPDFbyPath(const std::string&, std::int32_t, std::int32_t,
                                        std::int32_t, std::int32_t) {
  return unavailable();
}
std::int64_t ORVANTESDK::printPDFbyPath_Resize(const std::string&, std::int32_t, std::int32_t,
                                               std::int32_t, std::int32_t, std::int32_t) {
  return unavailable();
}
std::int64_t ORVANTESDK::printPDFbyPath_Resize(const std::string&, std::int32_t, std::int32_t,
                                               std::int32_t, std::int32_t, std::int32_t,
                                               std::int32_t) {
  return unavailable();
}
std::int64_t ORVANTESDK::printPDFbyFile(const PdfDocument&, std::int32_t, std::int32_t,
                                        std::int32_t) {
  return unavailable();
}
std::int64_t ORVANTESDK::printPDFbyFile(const PdfDocument&, std::int32_t, std::int32_t,
                                        std::int32_t, std::int32_t) {
  return unavailable();
}
std::int64_t ORVANTESDK::printPDFbyFile_Resize(const PdfDocument&, std::int32_t, std::int32_t,
                                               std::int32_t, std::int32_t, std::int32_t) {
  return unavailable();
}
std::int64_t ORVANTESDK::printPDFbyFile_Resize(const PdfDocument&, std::int32_t, std::int32_t,
                                               std::int32_t, std::int32_t, std::int32_t,
                                               std::int32_t) {
  return unavailable();
}
std::int64_t ORVANTESDK::getPDFPageCountbyPath(const std::string&) { return unavailable(); }
std::int64_t ORVANTESDK::getPDFPageCountbyFile(const PdfDocument&) { return unavailable(); }

orvante::Image PdfDocument::drawPage(int, int, int) const { return {}; }
