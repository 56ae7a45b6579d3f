// orvante.Template, orvante.Record and orvante.read_records: a label's
// layout in JSON filled with one record per label. A record from Python is
// a mapping of field names to text, numbers or booleans, written as the
// JSON-lines reader writes them; a template that cannot be used is
// TemplateError, a record that cannot be printed RecordError, both
// ValueError.

#include "bindings.hpp"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <cerrno>
#include <cmath>
#include <string>

#include <orvante/records.hpp>
#include <orvante/template.hpp>

namespace orvante::python {
namespace {

// The Python classes, made once when the module loads and kept for the
// process (as pybind11 keeps the classes it registers).
PyObject* templateErrorClass = nullptr;
PyObject* recordErrorClass = nullptr;

// Sets `type` as the error raised, with the message and the attributes
// set on the instance.
void setError(PyObject* type, const std::string& message,
              std::initializer_list<std::pair<const char*, py::object>> attributes) {
  py::object error = py::reinterpret_borrow<py::object>(type)(message);
  for (const auto& [name, value] : attributes) error.attr(name) = value;
  PyErr_SetObject(type, error.ptr());
}

// The record's fields at another number and line.
Record placed(const Record& given, std::size_t number, std::size_t line) {
  Record record(number, line);
  for (const auto& [name, value] : given.fields()) record.set(name, value);
  return record;
}

// A field's value as the JSON-lines reader writes it: text as it is,
// true/false, whole numbers in digits, floats as their shortest exact
// form (2.5, 1e-05, 1e+16).
std::string fieldText(const std::string& name, const py::handle& value) {
  if (py::isinstance<py::str>(value)) return value.cast<std::string>();
  if (py::isinstance<py::bool_>(value)) return value.cast<bool>() ? "true" : "false";
  if (py::isinstance<py::int_>(value)) return py::str(value).cast<std::string>();
  if (py::isinstance<py::float_>(value)) {
    if (!std::isfinite(value.cast<double>())) {
      throw std::invalid_argument("the field \"" + name + "\" is " + py::repr(value).cast<std::string>() +
                                  ": a number in a record is finite");
    }
    return py::repr(value).cast<std::string>();
  }
  throw py::type_error("the field \"" + name + "\" is a " +
                       py::str(py::type::of(value).attr("__name__")).cast<std::string>() +
                       ": a field holds str, int, float or bool (None for no field)");
}

}  // namespace

[[noreturn]] void raiseRecordError(std::size_t number, std::size_t line, const std::string& reason) {
  // A record from a file is named by its line, as the C++ message has it;
  // one made in Python, which has none, by its number.
  const std::string message = line > 0 ? "line " + std::to_string(line) + ": " + reason
                                       : "record " + std::to_string(number) + ": " + reason;
  setError(recordErrorClass, message,
           {{"number", py::int_(number)}, {"line", py::int_(line)}, {"reason", py::str(reason)}});
  throw py::error_already_set();
}

Record recordOf(const py::handle& given, std::size_t number) {
  if (py::isinstance<Record>(given)) return given.cast<Record>();
  if (!py::hasattr(given, "items")) {
    throw py::type_error("a record is an orvante.Record or a dict of fields, not " +
                         py::str(py::type::of(given).attr("__name__")).cast<std::string>());
  }
  Record record(number, 0);
  for (const py::handle item : given.attr("items")()) {
    const auto pair = item.cast<py::tuple>();
    if (!py::isinstance<py::str>(pair[0])) {
      throw py::type_error("a record's field names are str, not " +
                           py::repr(pair[0]).cast<std::string>());
    }
    const auto name = pair[0].cast<std::string>();
    if (pair[1].is_none()) continue;  // as a null in JSON lines: no field
    record.set(name, fieldText(name, pair[1]));
  }
  return record;
}

void bindTemplate(py::module_& module) {
  templateErrorClass = PyErr_NewExceptionWithDoc(
      "orvante._orvante.TemplateError",
      "A template that cannot be used; the message names where: \"elements[3].x: 900 is "
      "outside the label of 800 x 480 dots\". element is the element's index (-1 for the "
      "template's own keys), key the key.",
      PyExc_ValueError, nullptr);
  recordErrorClass = PyErr_NewExceptionWithDoc(
      "orvante._orvante.RecordError",
      "A record that cannot be printed: \"line 7: elements[1].text: the record has no field "
      "\\\"zip\\\" and the template no default for it\" (\"record 3: ...\" for a record made in "
      "Python). number and line name the record (line 0 for none), reason is the message "
      "without them.",
      PyExc_ValueError, nullptr);
  if (!templateErrorClass || !recordErrorClass) throw py::error_already_set();
  module.add_object("TemplateError", py::handle(templateErrorClass));
  module.add_object("RecordError", py::handle(recordErrorClass));
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const TemplateError& error) {
      setError(templateErrorClass, error.what(),
               {{"element", py::int_(error.element())}, {"key", py::str(error.key())}});
    } catch (const RecordError& error) {
      // One the bindings did not name by its number.
      setError(recordErrorClass, error.what(),
               {{"number", py::none()}, {"line", py::int_(error.line())},
                {"reason", py::str(error.reason())}});
    }
  });

  py::class_<Record>(module, "Record", R"(One record to print: fields of text, read-only, as a mapping.

read_records() gives them with their number (their place in the file,
from 1) and the line they start on; messages and batch journals name
those. Anywhere a record is taken, a dict does as well.)")
      .def(py::init([](const py::object& fields, std::size_t number, std::size_t line) {
             if (fields.is_none()) return Record(number, line);
             return placed(recordOf(fields, number), number, line);
           }),
           py::arg("fields") = py::none(), py::kw_only(), py::arg("number") = 1,
           py::arg("line") = 0,
           "The fields of a mapping (values str, int, float or bool as a JSON line writes "
           "them; None for no field).")
      .def_property_readonly("number", &Record::number, "Its place among the records, from 1.")
      .def_property_readonly("line", &Record::line, "The line it starts on; 0 for none.")
      .def("__getitem__",
           [](const Record& record, const std::string& name) {
             if (const std::string* value = record.find(name)) return *value;
             throw py::key_error(name);
           })
      .def(
          "get",
          [](const Record& record, const std::string& name, const py::object& otherwise) -> py::object {
            if (const std::string* value = record.find(name)) return py::str(*value);
            return otherwise;
          },
          py::arg("name"), py::arg("default") = py::none())
      .def("__contains__",
           [](const Record& record, const py::object& name) {
             return py::isinstance<py::str>(name) && record.find(name.cast<std::string>());
           })
      .def("__len__", [](const Record& record) { return record.fields().size(); })
      .def("keys",
           [](const Record& record) {
             py::list names;
             for (const auto& field : record.fields()) names.append(field.first);
             return names;
           })
      .def("values",
           [](const Record& record) {
             py::list values;
             for (const auto& field : record.fields()) values.append(field.second);
             return values;
           })
      .def("items", [](const Record& record) { return record.fields(); })
      .def("__iter__",
           [](const py::object& self) { return py::iter(self.attr("keys")()); })
      .def("__repr__", [](const py::object& self) {
        const auto& record = self.cast<const Record&>();
        return "<orvante.Record " + std::to_string(record.number()) + " (line " +
               std::to_string(record.line()) + ") " +
               py::repr(py::dict(self)).cast<std::string>() + ">";
      });

  module.def(
      "read_records",
      [](const std::filesystem::path& path) {
        requireFile(path);
        std::vector<Record> records;
        {
          py::gil_scoped_release released;
          try {
            records = readRecords(path);
          } catch (const std::invalid_argument& bad) {
            throw std::invalid_argument(path.string() + " " + bad.what());
          }
        }
        return records;
      },
      py::arg("path"),
      "The records of a file, as Records: JSON lines when it is named *.jsonl, *.ndjson or "
      "*.json or starts with '{', else CSV with a header row (RFC 4180 quoting, UTF-8). "
      "FileNotFoundError when it is missing, ValueError \"PATH line N: why\" when it is neither.");

  py::class_<Template>(module, "Template", R"(A label's layout in JSON, filled with one record per label.

    template = orvante.Template.from_json({
        "size": [50, 30], "gap": 2,
        "elements": [{"type": "text", "x": 20, "y": 20, "font": "3", "text": "${name}"}]})
    label = template.fill({"name": "Anna"})

In text, ${field} takes the record's value (or the template's default),
${field:%06d} formats a number, ${n} is the record's number and $$ a
dollar sign. The template is checked whole when it is read (TemplateError
naming the element and key); filling checks what the record puts in as
Label does (RecordError): text prints as given or is refused.)")
      .def_static(
          "from_file",
          [](const std::filesystem::path& path) {
            requireFile(path);
            py::gil_scoped_release released;
            return Template::load(path);
          },
          py::arg("path"),
          "Reads and checks the file; image paths are relative to its folder. "
          "FileNotFoundError when it is missing, TemplateError when it is wrong.")
      .def_static(
          "from_json",
          [](const py::object& json, const std::filesystem::path& base) {
            const std::string text = py::isinstance<py::str>(json)
                                         ? json.cast<std::string>()
                                         : py::module_::import("json").attr("dumps")(json).cast<std::string>();
            py::gil_scoped_release released;
            return Template::parse(text, base);
          },
          py::arg("json"), py::kw_only(), py::arg("base") = ".",
          "The template of JSON text, or of a dict as json.dumps writes it; image paths are "
          "relative to base.")
      .def(
          "fill",
          [](const Template& self, const py::object& record, std::optional<std::size_t> n) {
            Record filled = recordOf(record, n.value_or(1));
            if (n) filled = placed(filled, *n, filled.line());
            PyLabel label(self.dpi());
            std::optional<RecordError> refused;
            {
              // Text in an installed font is drawn here.
              py::gil_scoped_release released;
              try {
                label.label = self.fill(filled);
              } catch (const RecordError& error) {
                refused.emplace(error);
              }
            }
            if (refused) raiseRecordError(filled.number(), refused->line(), refused->reason());
            return label;
          },
          py::arg("record"), py::arg("n") = py::none(),
          "The label of the record (a Record or a dict), closed by one PRINT of its \"copies\" "
          "field (the template's copies without one). n is the record's number for ${n}: a "
          "Record's own, 1 for a dict, unless given. RecordError when the record cannot be "
          "printed.")
      .def(
          "copies",
          [](const Template& self, const py::object& record) {
            const Record given = recordOf(record, 1);
            try {
              return self.copies(given);
            } catch (const RecordError& error) {
              raiseRecordError(given.number(), error.line(), error.reason());
            }
          },
          py::arg("record"), "The copies the record asks for: its \"copies\" field, or the template's.")
      .def_property_readonly("dpi", &Template::dpi)
      .def_property_readonly("fields", &Template::fields,
                             "The fields its placeholders name, in order of appearance.")
      .def_property_readonly("fingerprint", &Template::fingerprint,
                             "A digest of its content: the same for templates of the same content.")
      .def("__repr__", [](const Template& self) {
        return "<orvante.Template " + std::to_string(self.dpi()) + " dpi, " +
               std::to_string(self.fields().size()) + " fields>";
      });
}

}  // namespace orvante::python
