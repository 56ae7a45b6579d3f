// orvante.discover: the printers within reach, through the library's
// discovery (DNS-SD, BLE, paired Bluetooth serial, USB, added serial).

#include <orvante/discovery.hpp>

#include "bindings.hpp"

namespace orvante::python {

void bindDiscovery(py::module_& module) {
  module.def(
      "discover",
      [](double timeout) {
        const auto wait = toTimeout(timeout, "the timeout");
        std::vector<FoundPrinter> found;
        {
          py::gil_scoped_release released;
          found = orvante::discover(wait);
        }
        py::list printers;
        for (const auto& printer : found) printers.append(py::make_tuple(printer.address, printer.name));
        return printers;
      },
      py::arg("timeout") = 2.0,
      "The printers within reach after listening for timeout seconds, as (address, name) "
      "pairs; the address is what Printer.open takes and the name is empty when the printer "
      "gave none. What could not be searched (no Bluetooth adapter, no Avahi) is skipped.");
}

}  // namespace orvante::python
