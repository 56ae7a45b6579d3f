#pragma once
// The printer drivers: label printers of the label command language at
// 203 and 300 dpi, their media, darkness, speed and dithering choices.

#include <pappl/pappl.h>

namespace orvante::app {

// The vendor option that picks how grey becomes dots.
inline constexpr const char* kDitherOption = "orvante-dither";
inline constexpr int kMinSpeedIps = 2;
inline constexpr int kMaxSpeedIps = 6;

// The drivers' names and descriptions, for papplMainloop and the system.
pappl_pr_driver_t* drivers();
int driverCount();

// Fills the driver data and attributes for a new printer (PAPPL's driver callback).
bool driverCallback(pappl_system_t* system, const char* driverName, const char* deviceUri,
                    const char* deviceId, pappl_pr_driver_data_t* data, ipp_t** attributes,
                    void* context);

}  // namespace orvante::app
