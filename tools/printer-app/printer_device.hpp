#pragma once
// The printers' devices: socket://host[:port] (a network printer),
// serial:///dev/ttyUSB0?baud=N, bt://ADDRESS and ble://ADDRESS, each a
// delivery of the library's second door: a label counts as printed once the
// printer confirmed it, and a printer that goes away or reports a fault
// makes its job wait, with the reason on the printer and the job, until it
// is back (the label it had not confirmed is sent again) or the job is
// cancelled.

#include <string>

#include <pappl/pappl.h>

#include <orvante/bytes.hpp>

namespace orvante::app {

// Registers the schemes, "socket" in place of PAPPL's. USB printers stay
// with PAPPL's own "usb" scheme.
void usePrinterDevices();

// The second door's address of a device URI: socket:// becomes tcp://;
// empty for a scheme that is not ours.
std::string printerAddressOf(const char* deviceUri);

// Sends one label (or a raw job's bytes) and returns once the printer
// confirmed it; false when the job was cancelled meanwhile. PAPPL's own USB
// devices are written without confirmation.
bool deliverLabel(pappl_job_t* job, pappl_device_t* device, ByteView label);

}  // namespace orvante::app
