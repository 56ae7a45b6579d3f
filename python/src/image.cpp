// orvante.Image: decoded files and bytes, and pixels from any object with
// the buffer protocol (a NumPy array, a memoryview cast to a shape), read
// once, straight into the library's premultiplied RGBA.

#include "bindings.hpp"

#include <pybind11/stl/filesystem.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <orvante/image.hpp>

namespace orvante::python {
namespace {

// A file that is not there is FileNotFoundError, as Python's own open
// says; one that is there but is no image the library decodes is
// ValueError.
[[noreturn]] void refuseFile(const std::string& path, const char* what) {
  std::error_code failure;
  if (!std::filesystem::exists(path, failure)) {
    errno = ENOENT;
    PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
    throw py::error_already_set();
  }
  throw std::invalid_argument(path + " " + what);
}

// Pixels of shape (height, width) or (height, width, channels), one byte
// each, in any strides: 1 channel grey, 2 grey and alpha, 3 RGB, 4 RGBA
// (alpha not premultiplied, as arrays and image files hold it).
Image fromPixels(const py::buffer& pixels) {
  const py::buffer_info info = pixels.request();
  if (info.itemsize != 1 || (info.format != "B" && info.format != "c")) {
    throw std::invalid_argument("image pixels must be bytes (uint8), not of format \"" +
                                info.format + "\"");
  }
  if (info.ndim != 2 && info.ndim != 3) {
    throw std::invalid_argument(
        "image pixels must have the shape (height, width) or (height, width, channels), not " +
        std::to_string(info.ndim) + " dimensions");
  }
  const auto height = info.shape[0], width = info.shape[1];
  const auto channels = info.ndim == 3 ? info.shape[2] : 1;
  if (channels < 1 || channels > 4) {
    throw std::invalid_argument("image pixels must have 1 to 4 channels, not " +
                                std::to_string(channels));
  }
  if (width < 1 || height < 1 || width > kMaxRenderedSide || height > kMaxRenderedSide ||
      width * height > kMaxRenderedPixels) {
    throw std::invalid_argument("an image of " + std::to_string(width) + " x " +
                                std::to_string(height) + " pixels is empty or too large");
  }
  const auto rowStride = info.strides[0], pixelStride = info.strides[1];
  const auto channelStride = info.ndim == 3 ? info.strides[2] : 0;
  const auto* base = static_cast<const std::uint8_t*>(info.ptr);
  Bytes rgba(static_cast<std::size_t>(width * height) * 4);
  std::uint8_t* out = rgba.data();
  for (py::ssize_t y = 0; y < height; ++y) {
    for (py::ssize_t x = 0; x < width; ++x, out += 4) {
      const std::uint8_t* pixel = base + y * rowStride + x * pixelStride;
      const auto at = [&](py::ssize_t channel) { return pixel[channel * channelStride]; };
      const unsigned alpha = (channels == 2 || channels == 4) ? at(channels - 1) : 255;
      const bool grey = channels <= 2;
      for (int c = 0; c < 3; ++c) {
        const unsigned value = at(grey ? 0 : c);
        out[c] = static_cast<std::uint8_t>((value * alpha + 127) / 255);
      }
      out[3] = static_cast<std::uint8_t>(alpha);
    }
  }
  return Image(static_cast<int>(width), static_cast<int>(height), std::move(rgba));
}

}  // namespace

const Image& imageOf(const py::handle& object, std::optional<Image>& made) {
  if (py::isinstance<Image>(object)) return object.cast<const Image&>();
  if (PyObject_CheckBuffer(object.ptr())) {
    return made.emplace(fromPixels(py::reinterpret_borrow<py::buffer>(object)));
  }
  throw py::type_error("an image must be an orvante.Image or pixels with the buffer protocol, not " +
                       std::string(py::str(py::type::of(object).attr("__name__"))));
}

void bindImage(py::module_& module) {
  py::class_<Image>(module, "Image",
                    "An image for a label: pixels, top row first, with a size in points "
                    "(pixels divided by the scale). Made from a file, from encoded bytes, or from "
                    "pixels: Image(array) takes any object with the buffer protocol of shape "
                    "(height, width) or (height, width, channels), one byte per channel: "
                    "grey, grey and alpha, RGB or RGBA.")
      .def(py::init(&fromPixels), py::arg("pixels"),
           "The image of the pixels, read once (a NumPy array in any strides, a memoryview "
           "cast to a shape).")
      .def_static(
          "from_file",
          [](const std::filesystem::path& path) {
            Image image;
            {
              py::gil_scoped_release released;
              image = Image::fromFile(path.string());
            }
            if (image.empty()) {
              refuseFile(path.string(), "is no PNG, JPEG, GIF or BMP image of at most 100 "
                                        "megapixels");
            }
            return image;
          },
          py::arg("path"),
          "Decodes PNG, JPEG, GIF (its first frame) or BMP. FileNotFoundError when the file is "
          "missing, ValueError when it cannot be decoded or has more than 100 megapixels.")
      .def_static(
          "from_bytes",
          [](const py::object& data) {
            const BufferView bytes(data, "the encoded image");
            Image image;
            {
              py::gil_scoped_release released;
              image = Image::fromData(bytes.bytes());
            }
            if (image.empty()) {
              throw std::invalid_argument(
                  "the bytes are no PNG, JPEG, GIF or BMP image of at most 100 megapixels");
            }
            return image;
          },
          py::arg("data"), "The same as from_file, from the file's bytes in memory.")
      .def_property_readonly("width", &Image::pixelWidth, "The width in pixels.")
      .def_property_readonly("height", &Image::pixelHeight, "The height in pixels.")
      .def_property_readonly("scale", &Image::scale, "Pixels per point.")
      .def_property_readonly(
          "rgba", [](const Image& image) { return py::bytes(textOf(image.rgba())); },
          "The pixels as bytes: R, G, B, A per pixel, colours premultiplied by alpha.")
      .def(
          "scaled",
          [](const Image& image, int width, int height) {
            Image scaled;
            {
              py::gil_scoped_release released;
              scaled = image.scaled(width, height);
            }
            if (scaled.empty()) {
              throw std::invalid_argument("cannot scale to " + std::to_string(width) + " x " +
                                          std::to_string(height) + " pixels");
            }
            return scaled;
          },
          py::arg("width"), py::arg("height"),
          "The image stretched smoothly to exactly width x height pixels (the aspect ratio is "
          "the caller's).")
      .def("__repr__", [](const Image& image) {
        return "<orvante.Image " + std::to_string(image.pixelWidth()) + " x " +
               std::to_string(image.pixelHeight()) + " pixels>";
      });
}

}  // namespace orvante::python
