#pragma once
// Network label printers announced by DNS-SD, through Avahi's client
// library: the raw printing service (_pdl-datastream._tcp), each resolved
// to its numeric IPv4 address and port.

#include <chrono>
#include <string>
#include <vector>

#include <orvante/discovery.hpp>

namespace orvante::platform::linux_devices {

// Browses for `timeout` on the caller's thread; empty, with the reason in
// `why`, when Avahi cannot be reached.
std::vector<FoundPrinter> browseNetworkPrinters(std::chrono::milliseconds timeout,
                                                std::string& why);

}  // namespace orvante::platform::linux_devices
