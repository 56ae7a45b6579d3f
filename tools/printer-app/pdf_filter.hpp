#pragma once
// PDF jobs: each page drawn at the printer's resolution by the library's PDF
// rendering and sent as one label.

#include <pappl/pappl.h>

namespace orvante::app {

// PAPPL's MIME filter callback from application/pdf to the printer's format.
bool printPdf(pappl_job_t* job, pappl_device_t* device, void* context);

// The resolution to draw a page of pageWidth x pageHeight dots (at dpi) so
// that it fits a label of labelWidth x labelHeight dots: dpi itself when it
// fits, lower to shrink the page onto the label.
int fittingDpi(int dpi, int pageWidth, int pageHeight, int labelWidth, int labelHeight);

}  // namespace orvante::app
