#pragma once
// socket://host[:port] devices. PAPPL's own socket devices keep a job
// waiting, retrying every few seconds, for as long as the printer cannot be
// reached; this one connects within a time limit and, when it cannot, fails
// the job's first write with the reason, so the job ends and the queue
// moves on.

#include <string>

#include <pappl/pappl.h>

namespace orvante::app {

// Registers the scheme in place of PAPPL's "socket".
void useNetworkDevices();

// Why the last write on this thread failed, then forgotten; empty when it
// did not fail through this device.
std::string takeDeviceProblem();

}  // namespace orvante::app
