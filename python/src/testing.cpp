// orvante.testing: printers simulated in this process, for testing
// printing code without a printer.

#include "bindings.hpp"

#include <memory>
#include <string>

#include <orvante/testing/simulated_printer.hpp>

namespace orvante::python {
namespace {

// A SimulatedPrinter that close() (or leaving a with block) detaches at
// once, rather than when Python collects it: its name is then free again.
class SimulatedPrinterHandle {
 public:
  explicit SimulatedPrinterHandle(std::string name)
      : printer_(std::make_unique<testing::SimulatedPrinter>(std::move(name))) {}

  testing::SimulatedPrinter& printer() const {
    if (!printer_) throw std::invalid_argument("the simulated printer is closed");
    return *printer_;
  }
  void close() { printer_.reset(); }

 private:
  std::unique_ptr<testing::SimulatedPrinter> printer_;
};

}  // namespace

void bindTesting(py::module_& module) {
  auto testing = module.def_submodule("testing", "Printers simulated in this process.");
  using Handle = SimulatedPrinterHandle;
  py::class_<Handle>(testing, "SimulatedPrinter", R"(A printer simulated in this process, reached as sim://NAME.

It records every byte it gets and answers the printer's queries (name,
code page, mileage, free memory, files, status).

    with orvante.testing.SimulatedPrinter("shop") as simulated:
        with orvante.Printer.open(simulated.uri) as printer:
            printer.print(label)
        simulated.wait_for_bytes(len(bytes(label))))")
      .def(py::init<std::string>(), py::arg("name") = "printer",
           "ValueError when another simulated printer has the name.")
      .def_property_readonly("uri", [](const Handle& self) { return self.printer().uri(); },
                             "\"sim://NAME\", for Printer.open.")
      .def(
          "received",
          [](const Handle& self) { return py::bytes(textOf(self.printer().received())); },
          "Every byte received, from every connection, in order of arrival.")
      .def(
          "wait_for_bytes",
          [](const Handle& self, std::size_t count, double timeout) {
            auto& printer = self.printer();
            const auto limit = toTimeout(timeout, "the timeout");
            py::gil_scoped_release released;
            return printer.waitForBytes(count, limit);
          },
          py::arg("count"), py::arg("timeout") = 5.0,
          "Whether count bytes came within the timeout.")
      .def(
          "set_status",
          [](const Handle& self, int status) {
            if (status < 0 || status > 0xFF) throw std::invalid_argument("a status is one byte");
            self.printer().setStatus(static_cast<std::uint8_t>(status));
          },
          py::arg("status"), "The status byte the status query answers (0 ready, 0x04 out of paper...).")
      .def(
          "set_name", [](const Handle& self, std::string name) { self.printer().setName(std::move(name)); },
          py::arg("name"), "The name the name query answers.")
      .def(
          "set_takes_bytes", [](const Handle& self, bool takes) { self.printer().setTakesBytes(takes); },
          py::arg("takes"), "While False the printer takes no bytes: sends wait, as on a stalled link.")
      .def(
          "hang_up", [](const Handle& self) { self.printer().hangUp(); },
          "Every open connection ends, as when the printer closes them.")
      .def("close", &Handle::close, "Detaches sim://NAME; the name is free again.")
      .def("__enter__", [](Handle& self) -> Handle& { return self; },
           py::return_value_policy::reference)
      .def("__exit__", [](Handle& self, const py::args&) { self.close(); });
}

}  // namespace orvante::python
