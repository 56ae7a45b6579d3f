// A printer's failure is orvante.Error, a RuntimeError with the reason in
// words; a bad argument (std::invalid_argument) is ValueError, as pybind11
// translates it.

#include "bindings.hpp"

#include <orvante/error.hpp>

namespace orvante::python {

void bindErrors(py::module_& module) {
  auto error = py::register_exception<Error>(module, "Error", PyExc_RuntimeError);
  error.doc() =
      "Why a printer could not be reached or did not do what was asked, in words: the printer "
      "refused or closed the connection, took no bytes, or did not answer within the timeout.";
}

}  // namespace orvante::python
