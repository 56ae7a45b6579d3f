#pragma once
// The printers' devices: socket://host[:port] (a network printer),
// serial:///dev/ttyUSB0?baud=N, bt://ADDRESS and ble://ADDRESS, each a
// connection of the library's second door. PAPPL's own socket devices keep
// a job waiting, retrying every few seconds, for as long as the printer
// cannot be reached; these connect within a time limit and, when they
// cannot, fail the job's first write with the reason, so the job ends and
// the queue moves on.

#include <string>

#include <pappl/pappl.h>

namespace orvante::app {

// Registers the schemes, "socket" in place of PAPPL's. USB printers stay
// with PAPPL's own "usb" scheme.
void usePrinterDevices();

// The second door's address of a device URI: socket:// becomes tcp://;
// empty for a scheme that is not ours.
std::string printerAddressOf(const char* deviceUri);

// Why the last write on this thread failed, then forgotten; empty when it
// did not fail through these devices.
std::string takeDeviceProblem();

}  // namespace orvante::app
