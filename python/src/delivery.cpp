// orvante.Delivery: labels to one printer so that none is lost and none is
// skipped. print() waits out a printer that is away or in a fault without
// the GIL; the callbacks take it back for their own calls.

#include "bindings.hpp"

#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <optional>
#include <string>

#include <orvante/delivery.hpp>

namespace orvante::python {

void bindDelivery(py::module_& module) {
  py::class_<Delivery> delivery(module, "Delivery", R"(Labels to one printer so that none is lost and none is skipped.

A label counts as printed only once the printer has confirmed it (it
answered a status query sent after the label, and reported no fault).
While the printer cannot be reached, or reports a fault (head open, paper
out or jammed, ribbon out, paused), print() waits, connecting again after
pauses that grow, and says why through on_waiting; when the printer is
back, the label it had not confirmed is sent again. At most that one
label, in flight at the fault, may print twice.

    delivery = orvante.Delivery("tcp://192.168.1.50")
    delivery.on_waiting(lambda wait: print(wait.reason))
    for label in labels:
        delivery.print(label))");

  py::class_<Delivery::Wait>(delivery, "Wait",
                             "Why the delivery waits: the reason in words (\"cannot reach the "
                             "printer: Connection refused\", \"out of paper\") and, for a fault, "
                             "the status the printer reported; an empty reason once it goes on.")
      .def_readonly("reason", &Delivery::Wait::reason)
      .def_readonly("fault", &Delivery::Wait::fault)
      .def("__repr__", [](const Delivery::Wait& wait) {
        return "<orvante.Delivery.Wait \"" + wait.reason + "\">";
      });

  // Registered after orvante.Error, so it is tried first.
  auto stopped = py::register_exception<Delivery::Stopped>(delivery, "Stopped",
                                                           module.attr("Error"));
  stopped.doc() = "stop() was called, from any thread, while a label waited.";

  delivery
      .def(py::init([](std::string uri, double connectTimeout, double confirmTimeout,
                       double firstPause, double longestPause,
                       std::optional<double> giveUpAfter) {
             Delivery::Options options;
             options.connectTimeout = toTimeout(connectTimeout, "the connect timeout");
             options.confirmTimeout = toTimeout(confirmTimeout, "the confirm timeout");
             options.firstPause = toTimeout(firstPause, "the first pause");
             options.longestPause = toTimeout(longestPause, "the longest pause");
             if (giveUpAfter) options.giveUpAfter = toGiveUpAfter(*giveUpAfter, "give_up_after");
             return std::make_unique<Delivery>(std::move(uri), options);
           }),
           py::arg("uri"), py::kw_only(), py::arg("connect_timeout") = 5.0,
           py::arg("confirm_timeout") = 30.0, py::arg("first_pause") = 0.25,
           py::arg("longest_pause") = 10.0, py::arg("give_up_after") = py::none(),
           "The printer's address as Printer.open takes it; timeouts and pauses in seconds. "
           "The pauses between attempts double from first_pause to longest_pause; "
           "give_up_after is how long one label may wait in all before Error (None: for ever).")
      .def("on_waiting", &Delivery::onWaiting, py::arg("callback"),
           "callback(wait) with a Delivery.Wait each time the delivery starts or stops waiting.")
      .def("stop_when", &Delivery::stopWhen, py::arg("should_stop"),
           "should_stop() is asked before each attempt and while waiting: True stops the "
           "delivery as stop() does (a job that was cancelled).")
      .def(
          "print",
          [](Delivery& self, const PyLabel& label) {
            py::gil_scoped_release released;
            std::lock_guard lock(label.busy);
            return self.print(label.label);
          },
          py::arg("label"),
          "Returns the printer's status once it confirmed the label. Raises Delivery.Stopped, "
          "or Error when give_up_after passed, with the last reason.")
      .def(
          "print",
          [](Delivery& self, const py::object& data) {
            const BufferView bytes(data, "the data");
            py::gil_scoped_release released;
            return self.print(bytes.bytes());
          },
          py::arg("data"), "The same for bytes.")
      .def("stop", &Delivery::stop, py::call_guard<py::gil_scoped_release>(),
           "Any thread: a label waiting or in progress ends with Delivery.Stopped, and so do "
           "all later ones.")
      .def_property_readonly("waited", &Delivery::waited,
                             "Whether the last print had to wait (the label in flight at that "
                             "moment may have printed twice).");
}

}  // namespace orvante::python
