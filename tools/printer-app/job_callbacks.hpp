#pragma once
// PAPPL's job callbacks: raster pages become labels (size, media, speed,
// density and clear lines, the page as the compressed bitmap packet, the
// print line with the job's copies); files in the printer's own command
// language pass through unchanged.

#include <pappl/pappl.h>

#include <orvante/bytes.hpp>

namespace orvante::app {

// The document format of files already in printer commands.
inline constexpr const char* kLabelFormat = "application/vnd.orvante-label";

bool printRawFile(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device);
bool startJob(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device);
bool startPage(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device,
               unsigned page);
bool writeLine(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device, unsigned y,
               const unsigned char* line);
bool endPage(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device, unsigned page);
bool endJob(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device);

// Writes every byte to the device, or sets the job's message and returns false.
bool sendToDevice(pappl_job_t* job, pappl_device_t* device, ByteView bytes);

}  // namespace orvante::app
