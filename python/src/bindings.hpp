#pragma once
// The Python module's pieces, one file per area of the second door, and
// what they share: the label as Python holds it, borrowed byte buffers,
// timeouts in seconds and the names of dithers and encodings.

#include <pybind11/pybind11.h>

#include <chrono>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <orvante/bytes.hpp>
#include <orvante/dither.hpp>
#include <orvante/encoding.hpp>
#include <orvante/image.hpp>
#include <orvante/label.hpp>
#include <orvante/records.hpp>

namespace orvante::python {

namespace py = pybind11;

void bindErrors(py::module_& module);
void bindImage(py::module_& module);
void bindPdf(py::module_& module);
void bindLabel(py::module_& module);
void bindPrinter(py::module_& module);
void bindDelivery(py::module_& module);
void bindPreview(py::module_& module);
void bindDiscovery(py::module_& module);
void bindTemplate(py::module_& module);
void bindBatch(py::module_& module);
void bindTesting(py::module_& module);

// A label as Python holds it. Calls that render (an image, text in a
// system font, a PDF page) and those that send the label run without the
// GIL, so another Python thread could reach the same label meanwhile: each
// call holds the label's mutex.
struct PyLabel {
  explicit PyLabel(int dpi) : label(dpi) {}
  PyLabel(const PyLabel& other);

  Label label;
  mutable std::mutex busy;
};

// Holds a label's mutex, called with the GIL: taken at once when the label
// is free, else waited for with the GIL released, so the thread that holds
// it can finish.
class LabelLock {
 public:
  explicit LabelLock(const PyLabel& label);

 private:
  std::unique_lock<std::mutex> lock_;
};

// The bytes of a Python object with the buffer protocol (bytes, bytearray,
// memoryview, a contiguous array), borrowed for the object's lifetime
// without a copy; the exporter keeps them in place while the view is held,
// so they may be read with the GIL released. A str is taken as its UTF-8
// bytes.
class BufferView {
 public:
  BufferView(const py::handle& object, const char* what);
  ~BufferView();
  BufferView(const BufferView&) = delete;
  BufferView& operator=(const BufferView&) = delete;

  ByteView bytes() const { return bytes_; }

 private:
  Py_buffer buffer_{};
  bool held_ = false;
  ByteView bytes_;
};

// An Image as it is, or the image of pixels with the buffer protocol (see
// orvante.Image), kept in `made`; ValueError saying why pixels cannot be an
// image, TypeError for anything else.
const Image& imageOf(const py::handle& object, std::optional<Image>& made);

// Seconds as the library's timeouts: a finite number of 0 or more, else
// ValueError naming `what`.
std::chrono::milliseconds toTimeout(double seconds, const char* what);
// As toTimeout for how long to wait for a printer: None waits for ever, so
// 0 is refused.
std::chrono::milliseconds toGiveUpAfter(double seconds, const char* what);

// FileNotFoundError, as Python's own open raises it, when nothing is at
// the path.
void requireFile(const std::filesystem::path& path);

// A record from Python: an orvante.Record as it is, or a mapping of field
// names to str, int, float or bool (None for no field) with the number
// given and no line. TypeError for anything else.
Record recordOf(const py::handle& given, std::size_t number);
// Raises orvante.RecordError, named by the record's line, or its number
// when it has none.
[[noreturn]] void raiseRecordError(std::size_t number, std::size_t line, const std::string& reason);

// "threshold", "floyd-steinberg", "atkinson", "ordered", "ordered8", "edge".
Dither ditherNamed(std::string_view name);
// "utf-8", "big5", "gb18030", "big5-hkscs", "mac-roman".
Encoding encodingNamed(std::string_view name);
// "left", "center", "right".
Alignment alignmentNamed(std::string_view name);

// The labels the bytes print, as PNG files in memory, rendered by the
// virtual printer's engine at 203 or 300 dpi. Called without the GIL.
std::vector<Bytes> renderPngs(ByteView bytes, int dpi);

}  // namespace orvante::python
