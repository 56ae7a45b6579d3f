#pragma once
// orvante::discover over given services, for the tests and the tools.

#include <chrono>
#include <string>
#include <vector>

#include <orvante/discovery.hpp>
#include <orvante/platform/platform.hpp>

namespace orvante::runtime {

// Network printers (DNS-SD) and BLE printers heard for `timeout`, then the
// platform's accessories that are printers with an address: paired
// serial-profile printers, USB printers, the application's serial devices.
std::vector<FoundPrinter> discover(const Platform& platform, std::chrono::milliseconds timeout,
                                   std::vector<std::string>* notes);

}  // namespace orvante::runtime
