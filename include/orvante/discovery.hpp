#pragma once
// Printers within reach without an address typed in, each as an address
// orvante::Printer::open takes:
//   tcp://ADDRESS:PORT       network printers found by DNS-SD (Avahi), by
//                            their numeric address (a .local name needs an
//                            mDNS resolver the computer may not have)
//   ble://ADDRESS            BLE printers heard advertising
//   bt://AA:BB:CC:DD:EE:FF   printers paired over the Bluetooth serial profile
//   usb:///dev/usb/lpN       USB printers
//   serial:///dev/...        the serial devices the application added
//
//   for (const auto& printer : orvante::discover(std::chrono::seconds(2)))
//     std::cout << printer.address << ' ' << printer.name << '\n';

#include <chrono>
#include <string>
#include <vector>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

struct FoundPrinter {
  std::string address;
  std::string name;  // empty when the printer gave none
};

// Listens for network and BLE printers for `timeout`, side by side, then
// lists the attached ones. What could not be searched (no Bluetooth
// adapter, no Avahi) is said in `notes`, when given, one line each.
std::vector<FoundPrinter> discover(std::chrono::milliseconds timeout = std::chrono::seconds(2),
                                   std::vector<std::string>* notes = nullptr);

}  // namespace orvante

ORVANTE_API_END
