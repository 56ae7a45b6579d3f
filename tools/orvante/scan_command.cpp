// orvante scan: the printers this computer can reach without an address
// typed in, one per line as an address --printer takes, then the name.

#include <iostream>

#include <orvante/platform/platform.hpp>
#include <orvante/printer.hpp>

#include "cli.hpp"
#include "printer_scan.hpp"

namespace orvante::cli {

void addScanCommand(CLI::App& app) {
  auto* scan = app.add_subcommand(
      "scan", "list BLE printers seen, paired Bluetooth printers and USB printers");
  auto seconds = std::make_shared<int>(4);
  scan->add_option("--seconds", *seconds, "how long to scan for BLE printers")
      ->check(CLI::NonNegativeNumber);
  scan->callback([seconds] {
    const auto system = Platform::system();
    auto found = scanBlePrinters(*system.ble, std::chrono::seconds(*seconds), std::cerr);
    const auto attached = accessoryPrinters(*system.accessories);
    found.insert(found.end(), attached.begin(), attached.end());
    printFound(found, std::cout);
    if (found.empty()) throw Error("no printer found");
  });
}

}  // namespace orvante::cli
