// What the module's pieces share: the label's lock, borrowed buffers,
// timeouts and the names Python passes for dithers and encodings.

#include "bindings.hpp"

#include <array>
#include <cerrno>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvante::python {

PyLabel::PyLabel(const PyLabel& other)
    : label([&] {
        std::lock_guard lock(other.busy);
        return other.label;
      }()) {}

LabelLock::LabelLock(const PyLabel& label) : lock_(label.busy, std::try_to_lock) {
  if (!lock_) {
    py::gil_scoped_release released;
    lock_.lock();
  }
}

BufferView::BufferView(const py::handle& object, const char* what) {
  if (PyUnicode_Check(object.ptr())) {
    // The UTF-8 form is cached in the str object, which outlives the call.
    Py_ssize_t size = 0;
    const char* text = PyUnicode_AsUTF8AndSize(object.ptr(), &size);
    if (!text) throw py::error_already_set();
    bytes_ = viewOf(std::string_view(text, static_cast<std::size_t>(size)));
    return;
  }
  if (!PyObject_CheckBuffer(object.ptr())) {
    throw py::type_error(std::string(what) + " must be bytes, bytearray, memoryview or str, not " +
                         std::string(py::str(py::type::of(object).attr("__name__"))));
  }
  if (PyObject_GetBuffer(object.ptr(), &buffer_, PyBUF_C_CONTIGUOUS) != 0) {
    throw py::error_already_set();
  }
  held_ = true;
  bytes_ = ByteView(static_cast<const std::uint8_t*>(buffer_.buf),
                    static_cast<std::size_t>(buffer_.len));
}

BufferView::~BufferView() {
  if (held_) PyBuffer_Release(&buffer_);
}

void requireFile(const std::filesystem::path& path) {
  std::error_code failure;
  if (!std::filesystem::exists(path, failure)) {
    errno = ENOENT;
    PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
    throw py::error_already_set();
  }
}

std::chrono::milliseconds toTimeout(double seconds, const char* what) {
  // Past about three years a wait is as good as for ever; the cap keeps
  // deadlines far from the clock's range.
  if (!std::isfinite(seconds) || seconds < 0 || seconds > 1e8) {
    throw std::invalid_argument(std::string(what) +
                                " must be a number of seconds from 0 to 1e8, not " +
                                std::to_string(seconds));
  }
  return std::chrono::milliseconds(static_cast<long long>(std::ceil(seconds * 1000)));
}

std::chrono::milliseconds toGiveUpAfter(double seconds, const char* what) {
  const auto limit = toTimeout(seconds, what);
  if (limit.count() == 0) {
    throw std::invalid_argument(std::string(what) + " must be above 0 (None waits for ever)");
  }
  return limit;
}

namespace {

template <class Value, std::size_t count>
Value named(std::string_view name, const std::array<std::pair<std::string_view, Value>, count>& names,
            const char* what) {
  std::string known;
  for (const auto& [candidate, value] : names) {
    if (candidate == name) return value;
    known += (known.empty() ? "\"" : ", \"") + std::string(candidate) + "\"";
  }
  throw std::invalid_argument("unknown " + std::string(what) + " \"" + std::string(name) +
                              "\" (one of " + known + ")");
}

}  // namespace

Dither ditherNamed(std::string_view name) {
  static constexpr std::array<std::pair<std::string_view, Dither>, 6> kNames{{
      {"threshold", Dither::Threshold},
      {"floyd-steinberg", Dither::FloydSteinberg},
      {"atkinson", Dither::Atkinson},
      {"ordered", Dither::Ordered4x4},
      {"ordered8", Dither::Ordered8x8},
      {"edge", Dither::EdgeAware},
  }};
  return named(name, kNames, "dither");
}

Encoding encodingNamed(std::string_view name) {
  static constexpr std::array<std::pair<std::string_view, Encoding>, 5> kNames{{
      {"utf-8", Encoding::Utf8},
      {"big5", Encoding::Big5},
      {"gb18030", Encoding::Gb18030},
      {"big5-hkscs", Encoding::Big5Hkscs},
      {"mac-roman", Encoding::MacRoman},
  }};
  return named(name, kNames, "encoding");
}

Alignment alignmentNamed(std::string_view name) {
  static constexpr std::array<std::pair<std::string_view, Alignment>, 3> kNames{{
      {"left", Alignment::Left},
      {"center", Alignment::Center},
      {"right", Alignment::Right},
  }};
  return named(name, kNames, "alignment");
}

}  // namespace orvante::python
