// orvante.preview: the labels some bytes print, rendered by the virtual
// printer's engine as PNG files in memory, as a printer of that resolution
// would print them.

#include "bindings.hpp"

#include <pybind11/stl.h>

#include <vector>

#include <orvante/vprinter/engine.hpp>

namespace orvante::python {

std::vector<Bytes> renderPngs(ByteView bytes, int dpi) {
  if (dpi != 203 && dpi != 300) {
    throw std::invalid_argument("a preview renders at 203 or 300 dpi, not " + std::to_string(dpi));
  }
  vprinter::Options options;
  options.dpi = dpi;
  vprinter::Engine engine(options);
  engine.feed(1, bytes);
  // A packet or payload the bytes leave unfinished prints nothing.
  engine.disconnect(1);
  std::vector<Bytes> pngs;
  for (const auto& label : engine.takePrinted()) pngs.push_back(label.png());
  return pngs;
}

void bindPreview(py::module_& module) {
  module.def(
      "preview",
      [](const py::object& labelOrBytes, std::optional<int> dpi) {
        std::vector<Bytes> pngs;
        if (py::isinstance<PyLabel>(labelOrBytes)) {
          const auto& label = labelOrBytes.cast<const PyLabel&>();
          py::gil_scoped_release released;
          std::lock_guard lock(label.busy);
          pngs = renderPngs(label.label.bytes(), dpi.value_or(label.label.dpi()));
        } else {
          const BufferView bytes(labelOrBytes, "the label");
          py::gil_scoped_release released;
          pngs = renderPngs(bytes.bytes(), dpi.value_or(203));
        }
        py::list out;
        for (const auto& png : pngs) out.append(py::bytes(textOf(png)));
        return out;
      },
      py::arg("label"), py::arg("dpi") = py::none(),
      "The labels that a Label (or a printer's bytes) prints, as a list of PNG files' bytes, "
      "one per printed label (1-bit grey, one pixel a dot), rendered by the virtual printer's "
      "engine at dpi: 203 or 300, the label's own resolution unless told (203 for bytes).");
}

}  // namespace orvante::python
