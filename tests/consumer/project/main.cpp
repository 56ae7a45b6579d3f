// A program outside the tree that uses the installed library.
#include <orvante/orvante.hpp>

#include <cstdio>

int main() {
  orvante::setLogSink([](std::string_view) {});
  ORVANTESDK session;
  if (session.stream_status() != -1) return 1;
#ifdef CONSUMER_PDF
  if (orvante::PdfDocument::open("/nonexistent.pdf").pageCount() != 0) return 1;
  if (session.getPDFPageCountbyPath("/nonexistent.pdf") != 0) return 1;
#endif
  std::printf("%s\n", reinterpret_cast<const char*>(ORVANTESDKVersionString));
  return 0;
}
