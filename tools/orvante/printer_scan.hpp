#pragma once
// Finding printers for `orvante scan`: BLE printers advertising during a
// scan, and the system's accessories (paired Bluetooth serial-profile
// printers, USB printers), each as an address Printer::open takes.

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

#include <orvante/platform/accessory.hpp>
#include <orvante/platform/ble.hpp>

namespace orvante::cli {

struct FoundPrinter {
  std::string address;  // "ble://...", "bt://...", "usb:///dev/usb/lp0"
  std::string name;     // empty when the printer gave none
};

// The peripherals seen while scanning for `period`, by address, with the
// last local name each advertised. Says on `notes` why nothing could be
// scanned (no adapter or no bus, the radio off).
std::vector<FoundPrinter> scanBlePrinters(ble::CentralFactory& radio,
                                          std::chrono::milliseconds period, std::ostream& notes);

// The accessories that are printers with an address: "bt://" for a paired
// serial-profile printer, the device's own address otherwise.
std::vector<FoundPrinter> accessoryPrinters(AccessoryManager& accessories);

// One line each: the address, then the name when there is one.
void printFound(const std::vector<FoundPrinter>& printers, std::ostream& out);

}  // namespace orvante::cli
