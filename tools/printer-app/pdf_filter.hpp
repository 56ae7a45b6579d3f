#pragma once
// PDF jobs: each page drawn by the library's PDF rendering, scaled and
// placed on the label as the job's print-scaling says, and sent as one label.

#include <pappl/pappl.h>

namespace orvante::app {

// PAPPL's MIME filter callback from application/pdf to the printer's format.
bool printPdf(pappl_job_t* job, pappl_device_t* device, void* context);

}  // namespace orvante::app
