// orvante scan: the printers this computer can reach without an address
// typed in, one per line as an address --printer takes, then the name.

#include <iostream>

#include <orvante/discovery.hpp>
#include <orvante/error.hpp>

#include "cli.hpp"

namespace orvante::cli {

void addScanCommand(CLI::App& app) {
  auto* scan = app.add_subcommand(
      "scan", "list network printers, BLE printers seen, paired Bluetooth and USB printers");
  auto seconds = std::make_shared<int>(4);
  scan->add_option("--seconds", *seconds, "how long to listen for network and BLE printers")
      ->check(CLI::NonNegativeNumber);
  scan->callback([seconds] {
    std::vector<std::string> notes;
    const auto found = discover(std::chrono::seconds(*seconds), &notes);
    for (const auto& note : notes) std::cerr << "orvante: " << note << '\n';
    for (const auto& printer : found) {
      std::cout << printer.address;
      if (!printer.name.empty()) std::cout << ' ' << printer.name;
      std::cout << '\n';
    }
    if (found.empty()) throw Error("no printer found");
  });
}

}  // namespace orvante::cli
