// orvante.discover: the printers within reach. The library has no
// discovery of its own yet; until it has, the function is here with the
// signature it will keep and says so when called.

#include "bindings.hpp"

namespace orvante::python {

void bindDiscovery(py::module_& module) {
  module.def(
      "discover",
      [](double timeout) -> py::list {
        toTimeout(timeout, "the timeout");
        PyErr_SetString(PyExc_NotImplementedError,
                        "orvante.discover: this version of the library discovers no printers");
        throw py::error_already_set();
      },
      py::arg("timeout") = 2.0,
      "The printers within reach after listening for timeout seconds, as (address, name) "
      "pairs; the address is what Printer.open takes. Raises NotImplementedError in this "
      "version.");
}

}  // namespace orvante::python
