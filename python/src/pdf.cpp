// orvante.PdfDocument: documents whose pages a label prints as images.

#include "bindings.hpp"

#include <pybind11/stl/filesystem.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <orvante/pdf.hpp>

namespace orvante::python {
namespace {

void requireOpen(const PdfDocument& document, const std::string& what) {
  if (document.pageCount() > 0) return;
  throw std::invalid_argument(what + " cannot be opened as a PDF document (damaged, locked by "
                                     "a password, without pages, or this build prints no PDF)");
}

}  // namespace

void bindPdf(py::module_& module) {
  py::class_<PdfDocument>(module, "PdfDocument",
                          "An open PDF document. Safe to use from several threads; pages are "
                          "drawn one at a time.")
      .def_static(
          "open",
          [](const std::filesystem::path& path) {
            std::error_code failure;
            if (!std::filesystem::exists(path, failure)) {
              errno = ENOENT;
              PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
              throw py::error_already_set();
            }
            PdfDocument document;
            {
              py::gil_scoped_release released;
              document = PdfDocument::open(path.string());
            }
            requireOpen(document, path.string());
            return document;
          },
          py::arg("path"),
          "Opens the file. FileNotFoundError when it is missing, ValueError when it is "
          "damaged or locked by a password.")
      .def_static(
          "from_bytes",
          [](const py::object& data) {
            const BufferView bytes(data, "the document");
            PdfDocument document;
            {
              py::gil_scoped_release released;
              document = PdfDocument::fromData(bytes.bytes());
            }
            requireOpen(document, "the bytes");
            return document;
          },
          py::arg("data"), "The same as open, from the file's bytes in memory (copied).")
      .def_property_readonly("page_count", &PdfDocument::pageCount)
      .def(
          "page_size",
          [](const PdfDocument& document, int page) -> py::object {
            const auto size = document.pageSize(page);
            if (!size) return py::none();
            return py::make_tuple(size->width, size->height);
          },
          py::arg("page"),
          "The page's size in points (1/72 inch) as (width, height), counted from 1: its "
          "visible box turned by its own rotation. None for a page the document lacks.")
      .def(
          "draw_page",
          [](const PdfDocument& document, int page, int width, int height) {
            Image drawn;
            {
              py::gil_scoped_release released;
              drawn = document.drawPage(page, width, height);
            }
            if (drawn.empty()) {
              throw std::invalid_argument("cannot draw page " + std::to_string(page) + " at " +
                                          std::to_string(width) + " x " + std::to_string(height) +
                                          " pixels");
            }
            return drawn;
          },
          py::arg("page"), py::arg("width"), py::arg("height"),
          "The page (counted from 1) drawn on white into exactly width x height pixels, "
          "stretched to them.")
      .def("__repr__", [](const PdfDocument& document) {
        return "<orvante.PdfDocument " + std::to_string(document.pageCount()) + " pages>";
      });
}

}  // namespace orvante::python
