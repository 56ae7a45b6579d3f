// orvante._orvante: the second door for Python. The pure Python package
// orvante re-exports it.

#include "bindings.hpp"

PYBIND11_MODULE(_orvante, module) {
  using namespace orvante::python;
  module.doc() =
      "Thermal label printers: labels as values (Label), connections to printers (Printer), "
      "confirmed printing (Delivery), templates filled per record and printed as batches (Template, Batch) and previews rendered as the printer would print them.";
  // Errors first: the classes below raise them.
  bindErrors(module);
  bindImage(module);
  bindPdf(module);
  bindLabel(module);
  bindPrinter(module);
  bindDelivery(module);
  bindTemplate(module);
  bindBatch(module);
  bindPreview(module);
  bindDiscovery(module);
  bindTesting(module);
}
