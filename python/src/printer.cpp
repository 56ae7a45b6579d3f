// orvante.Printer and orvante.PrinterStatus: a connection to one printer.
// Every call that waits on the printer runs without the GIL, so other
// Python threads go on meanwhile; the progress callback takes the GIL back
// for its own call.

#include "bindings.hpp"

#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <cstdio>
#include <string>

#include <orvante/printer.hpp>

namespace orvante::python {
namespace {

// Runs a call on the printer without the GIL.
template <class Call>
auto waiting(Call&& call) {
  py::gil_scoped_release released;
  return call();
}

// A reply as text: a printer's bytes that are not UTF-8 become U+FFFD
// rather than failing the call.
py::str replyText(const std::string& reply) {
  PyObject* text = PyUnicode_DecodeUTF8(reply.data(), static_cast<Py_ssize_t>(reply.size()),
                                        "replace");
  if (!text) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(text);
}

std::string statusRepr(const PrinterStatus& status) {
  char byte[8];
  std::snprintf(byte, sizeof byte, "0x%02x", status.byte);
  return "<orvante.PrinterStatus " + std::string(byte) + ": " + status.describe() + ">";
}

}  // namespace

void bindPrinter(py::module_& module) {
  py::class_<PrinterStatus>(module, "PrinterStatus",
                            "The printer's status byte and what it says; str() gives it in "
                            "words.")
      .def(py::init([](int byte) {
             if (byte < 0 || byte > 0xFF) throw std::invalid_argument("a status is one byte");
             return PrinterStatus{static_cast<std::uint8_t>(byte)};
           }),
           py::arg("byte") = 0)
      .def_readonly("byte", &PrinterStatus::byte)
      .def_property_readonly("ready", &PrinterStatus::ready)
      .def_property_readonly("head_open", &PrinterStatus::headOpen)
      .def_property_readonly("paper_jam", &PrinterStatus::paperJam)
      .def_property_readonly("out_of_paper", &PrinterStatus::outOfPaper)
      .def_property_readonly("out_of_ribbon", &PrinterStatus::outOfRibbon)
      .def_property_readonly("paused", &PrinterStatus::paused)
      .def_property_readonly("printing", &PrinterStatus::printing)
      .def_property_readonly("other_error", &PrinterStatus::otherError)
      .def_property_readonly("words", &PrinterStatus::describe,
                             "\"ready\", or the conditions in words: \"head open, out of paper\".")
      .def("__str__", &PrinterStatus::describe)
      .def("__repr__", &statusRepr)
      .def("__eq__", [](const PrinterStatus& a, const PrinterStatus& b) { return a.byte == b.byte; })
      .def("__hash__", [](const PrinterStatus& status) { return status.byte; });

  py::class_<Printer>(module, "Printer", R"(A connection to one printer.

It never pauses on purpose, every wait has a time limit (timeouts in
seconds), and every failure is orvante.Error saying what went wrong. Calls
from several threads are serialised on the connection; close() may come
from any thread at any time: a call in progress on another thread then
fails at once with Error saying that the connection was closed. A context
manager: leaving the with block closes it.

    with orvante.Printer.open("tcp://192.168.1.50") as printer:
        printer.print(label)
        print(printer.name(), printer.status().words))")
      .def_static(
          "open",
          [](std::string_view uri, double timeout) {
            const auto limit = toTimeout(timeout, "the timeout");
            return waiting([&] { return Printer::open(uri, limit); });
          },
          py::arg("uri"), py::arg("timeout") = 5.0,
          "Connects to \"tcp://host[:port]\" (port 9100 when absent; IPv6 addresses in "
          "brackets), \"ble://ADDRESS\" (a BLE printer's device address, scanned for until the "
          "timeout), \"serial:///dev/ttyUSB0?baud=115200\" (a tty set raw, 8N1, 9600 baud when "
          "absent), \"usb:///dev/usb/lp0\" or \"bt://AA:BB:CC:DD:EE:FF\" (paired over the "
          "Bluetooth serial port profile). Error when the printer refuses, cannot be reached, "
          "its device is missing or not permitted, or it does not answer within the timeout.")
      .def(
          "send",
          [](Printer& printer, const py::object& data) {
            const BufferView bytes(data, "the data");
            waiting([&] { printer.send(bytes.bytes()); });
          },
          py::arg("data"),
          "Writes every byte (bytes, bytearray, memoryview, or str as UTF-8), or raises Error: "
          "the printer closed or reset the connection, or took no byte for the stall timeout "
          "(30 s).")
      .def(
          "print",
          [](Printer& printer, const PyLabel& label) {
            waiting([&] {
              std::lock_guard lock(label.busy);
              printer.print(label.label);
            });
          },
          py::arg("label"), "Sends the label's bytes, as send().")
      .def(
          "send_confirmed",
          [](Printer& printer, const py::object& data, double timeout) {
            const BufferView bytes(data, "the data");
            const auto limit = toTimeout(timeout, "the timeout");
            return waiting([&] { return printer.sendConfirmed(bytes.bytes(), limit); });
          },
          py::arg("data"), py::arg("timeout") = 30.0,
          "Sends the bytes, then asks the printer's status: its answer confirms that it took "
          "every byte before. Returns the status it answered (a label confirmed while it "
          "reports a fault may not have printed). Error when the bytes cannot be sent or no "
          "answer comes within the timeout.")
      .def(
          "print_confirmed",
          [](Printer& printer, const PyLabel& label, double timeout) {
            const auto limit = toTimeout(timeout, "the timeout");
            return waiting([&] {
              std::lock_guard lock(label.busy);
              return printer.printConfirmed(label.label, limit);
            });
          },
          py::arg("label"), py::arg("timeout") = 30.0, "The label, as send_confirmed().")
      .def(
          "on_progress",
          [](Printer& printer, std::optional<Printer::Progress> progress) {
            printer.onProgress(progress ? std::move(*progress) : Printer::Progress{});
          },
          py::arg("callback"),
          "callback(sent, total) after each piece of a send is written, on the sending thread; "
          "None for none. An exception it raises ends the send with that exception.")
      .def(
          "set_stall_timeout",
          [](Printer& printer, double seconds) {
            printer.setStallTimeout(toTimeout(seconds, "the stall timeout"));
          },
          py::arg("seconds"), "How long a send waits for the printer to take a byte (30 s).")
      // Queries: one request, one reply, within the timeout or Error.
      .def(
          "name",
          [](Printer& printer, double timeout) {
            const auto limit = toTimeout(timeout, "the timeout");
            return replyText(waiting([&] { return printer.name(limit); }));
          },
          py::arg("timeout") = 2.0, "The printer's model name.")
      .def(
          "code_page",
          [](Printer& printer, double timeout) {
            const auto limit = toTimeout(timeout, "the timeout");
            return replyText(waiting([&] { return printer.codePage(limit); }));
          },
          py::arg("timeout") = 2.0)
      .def(
          "mileage",
          [](Printer& printer, double timeout) {
            const auto limit = toTimeout(timeout, "the timeout");
            return waiting([&] { return printer.mileage(limit); });
          },
          py::arg("timeout") = 2.0, "The printed distance in km.")
      .def(
          "free_memory",
          [](Printer& printer, double timeout) {
            const auto limit = toTimeout(timeout, "the timeout");
            return waiting([&] { return printer.freeMemory(limit); });
          },
          py::arg("timeout") = 2.0, "Bytes free for stored files.")
      .def(
          "files",
          [](Printer& printer, double timeout) {
            const auto limit = toTimeout(timeout, "the timeout");
            const auto names = waiting([&] { return printer.files(limit); });
            py::list files;
            for (const auto& name : names) files.append(replyText(name));
            return files;
          },
          py::arg("timeout") = 2.0, "The names of the files stored in the printer.")
      .def(
          "status",
          [](Printer& printer, double timeout) {
            const auto limit = toTimeout(timeout, "the timeout");
            return waiting([&] { return printer.status(limit); });
          },
          py::arg("timeout") = 2.0, "The printer's status (PrinterStatus).")
      .def(
          "query",
          [](Printer& printer, std::string_view request, std::string_view end, double timeout) {
            const auto limit = toTimeout(timeout, "the timeout");
            const std::string reply = waiting([&] { return printer.query(request, end, limit); });
            return py::bytes(reply);
          },
          py::arg("request"), py::arg("end"), py::arg("timeout") = 2.0,
          "Any other request: the reply's bytes up to end, which is left out.")
      .def_property_readonly("is_open", &Printer::isOpen)
      .def("close", &Printer::close, py::call_guard<py::gil_scoped_release>(),
           "Closes the connection; any thread, any time; again does nothing.")
      .def("__enter__", [](Printer& printer) -> Printer& { return printer; },
           py::return_value_policy::reference)
      .def(
          "__exit__",
          [](Printer& printer, const py::args&) {
            py::gil_scoped_release released;
            printer.close();
          })
      .def("__repr__", [](const Printer& printer) {
        return std::string("<orvante.Printer ") + (printer.isOpen() ? "open" : "closed") + ">";
      });
}

}  // namespace orvante::python
