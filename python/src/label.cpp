// orvante.Label: the label as a value, each builder adding the printer
// commands of one element and returning the label, so calls chain. The
// bytes are the C++ Label's for the same calls. Builders that render (an
// image, text in a system font, a PDF page) run without the GIL.

#include "bindings.hpp"

#include <stdexcept>
#include <string>

#include <orvante/pdf.hpp>

namespace orvante::python {
namespace {

constexpr auto kSelf = py::return_value_policy::reference;

// A builder that only writes command lines: quick, so it keeps the GIL.
template <class Build>
PyLabel& build(PyLabel& self, Build&& add) {
  LabelLock lock(self);
  add(self.label);
  return self;
}

// A builder that draws: without the GIL, once the label is free.
template <class Build>
PyLabel& render(PyLabel& self, Build&& add) {
  py::gil_scoped_release released;
  std::lock_guard lock(self.busy);
  add(self.label);
  return self;
}

ImageOptions imageOptions(std::string_view dither, double threshold) {
  return {ditherNamed(dither), threshold};
}

}  // namespace

void bindLabel(py::module_& module) {
  py::class_<PyLabel> label(module, "Label", R"(A label as a value.

Each call adds the printer commands for one element and returns the label,
so calls chain; bytes(label) gives them, ready for Printer.print or any
other way to the printer. Bad arguments are refused when added, with
ValueError saying what and why.

Text from users is safe here: a text's content and a barcode's code print
exactly as given (quotes included) or are refused when they hold what no
command line can carry (line ends, other control characters, "~!"); font,
barcode type and file names hold only letters, digits, '.', '_' and '-'.
Only raw() sends its line as it stands: never put a user's text there.

Positions and sizes on the label are in dots; the label's size, gap and
marks in mm.)");

  label
      .def(py::init<int>(), py::arg("dpi") = 203,
           "The printer's resolution, for sizes in mm and the checks against the label's size: "
           "203 (8 dots/mm) or 300 (12 dots/mm), or any other.")
      .def_property_readonly("dpi", [](const PyLabel& self) { return self.label.dpi(); })
      // --- Media
      .def(
          "size",
          [](PyLabel& self, double width, double height) -> PyLabel& {
            return build(self, [&](Label& l) { l.size(width, height); });
          },
          py::arg("width_mm"), py::arg("height_mm"), kSelf, "The label's size in mm.")
      .def(
          "gap",
          [](PyLabel& self, double gap, double offset) -> PyLabel& {
            return build(self, [&](Label& l) { l.gap(gap, offset); });
          },
          py::arg("gap_mm"), py::arg("offset_mm") = 0.0, kSelf,
          "Labels separated by gaps of gap_mm, sensed by the gap sensor.")
      .def(
          "black_mark",
          [](PyLabel& self, double mark, double offset) -> PyLabel& {
            return build(self, [&](Label& l) { l.blackMark(mark, offset); });
          },
          py::arg("mark_mm"), py::arg("offset_mm") = 0.0, kSelf,
          "Labels separated by black marks of mark_mm on the back of the media.")
      .def(
          "speed",
          [](PyLabel& self, double speed) -> PyLabel& {
            return build(self, [&](Label& l) { l.speed(speed); });
          },
          py::arg("inches_per_second"), kSelf)
      .def(
          "density",
          [](PyLabel& self, int darkness) -> PyLabel& {
            return build(self, [&](Label& l) { l.density(darkness); });
          },
          py::arg("darkness"), kSelf, "The darkness, 0 to 15.")
      .def(
          "clear", [](PyLabel& self) -> PyLabel& { return build(self, [](Label& l) { l.clear(); }); },
          kSelf, "Clears the printer's image buffer.")
      // --- Content
      .def(
          "text",
          [](PyLabel& self, int x, int y, std::string_view font, std::string_view content,
             int rotation, int xMultiplier, int yMultiplier, std::string_view encoding) -> PyLabel& {
            const TextOptions options{rotation, xMultiplier, yMultiplier, encodingNamed(encoding)};
            return build(self, [&](Label& l) { l.text(x, y, font, content, options); });
          },
          py::arg("x"), py::arg("y"), py::arg("font"), py::arg("content"), py::kw_only(),
          py::arg("rotation") = 0, py::arg("x_multiplier") = 1, py::arg("y_multiplier") = 1,
          py::arg("encoding") = "utf-8", kSelf,
          "Printer-font text: fonts \"1\" to \"8\", \"0\" (scalable) or a stored font's name; "
          "rotation 0, 90, 180 or 270; multipliers 1 to 10; encoding \"utf-8\", \"big5\", "
          "\"gb18030\", \"big5-hkscs\" or \"mac-roman\".")
      .def(
          "barcode",
          [](PyLabel& self, int x, int y, std::string_view type, std::string_view code, int height,
             bool readable, int rotation, int narrow, int wide) -> PyLabel& {
            const BarcodeOptions options{readable, rotation, narrow, wide};
            return build(self, [&](Label& l) { l.barcode(x, y, type, code, height, options); });
          },
          py::arg("x"), py::arg("y"), py::arg("type"), py::arg("code"), py::arg("height"),
          py::kw_only(), py::arg("readable") = true, py::arg("rotation") = 0,
          py::arg("narrow") = 2, py::arg("wide") = 2, kSelf,
          "A barcode type the printer knows (\"128\", \"39\", \"EAN13\", ...), height in dots; "
          "readable adds the human-readable line under the bars; narrow and wide are the bar "
          "widths in dots.")
      .def(
          "text_block",
          [](PyLabel& self, int x, int y, int width, int height, std::string_view font,
             std::string_view content, int rotation, int xMultiplier, int yMultiplier,
             int lineSpacing, std::string_view alignment, std::string_view encoding) -> PyLabel& {
            const TextBlockOptions options{rotation,    xMultiplier,           yMultiplier,
                                           lineSpacing, alignmentNamed(alignment),
                                           encodingNamed(encoding)};
            return build(self, [&](Label& l) {
              l.textBlock(x, y, width, height, font, content, options);
            });
          },
          py::arg("x"), py::arg("y"), py::arg("width"), py::arg("height"), py::arg("font"),
          py::arg("content"), py::kw_only(), py::arg("rotation") = 0, py::arg("x_multiplier") = 1,
          py::arg("y_multiplier") = 1, py::arg("line_spacing") = 0, py::arg("alignment") = "left",
          py::arg("encoding") = "utf-8", kSelf,
          "Printer-font text wrapped at spaces (a word wider than the block at characters) into "
          "lines width dots wide; the lines that fit height print. line_spacing is dots between "
          "lines; alignment \"left\", \"center\" or \"right\"; the rest as for text().")
      .def(
          "qr",
          [](PyLabel& self, int x, int y, std::string_view data, std::string_view errorCorrection,
             int cell, int rotation) -> PyLabel& {
            if (errorCorrection.size() != 1) {
              throw std::invalid_argument("the error correction is one letter, L, M, Q or H, not \"" +
                                          std::string(errorCorrection) + "\"");
            }
            const QrCodeOptions options{errorCorrection.front(), cell, rotation};
            return build(self, [&](Label& l) { l.qrCode(x, y, data, options); });
          },
          py::arg("x"), py::arg("y"), py::arg("data"), py::kw_only(),
          py::arg("error_correction") = "M", py::arg("cell") = 4, py::arg("rotation") = 0, kSelf,
          "A QR code of the data (UTF-8), its top left corner at x, y. error_correction: \"L\", "
          "\"M\", \"Q\" or \"H\" (7, 15, 25 or 30 % of the code restored); cell is the "
          "module's width in dots, 1 to 20.")
      .def(
          "image",
          [](PyLabel& self, int x, int y, const py::object& picture, std::string_view dither,
             double threshold) -> PyLabel& {
            const auto options = imageOptions(dither, threshold);
            std::optional<Image> made;
            const Image& image = imageOf(picture, made);
            return render(self, [&](Label& l) { l.image(x, y, image, options); });
          },
          py::arg("x"), py::arg("y"), py::arg("image"), py::kw_only(),
          py::arg("dither") = "threshold", py::arg("threshold") = 128.0, kSelf,
          "The image (an Image, or pixels as Image takes them) as the compressed bitmap "
          "packet. dither: \"threshold\" (dark below threshold, 128 unless told), "
          "\"floyd-steinberg\", \"atkinson\", \"ordered\" (4 x 4), \"ordered8\" (8 x 8) or "
          "\"edge\" (pure black and white and their borders exact, shades diffused).")
      .def(
          "bitmap",
          [](PyLabel& self, int x, int y, const py::object& picture, std::string_view dither,
             double threshold) -> PyLabel& {
            const auto options = imageOptions(dither, threshold);
            std::optional<Image> made;
            const Image& image = imageOf(picture, made);
            return render(self, [&](Label& l) { l.bitmap(x, y, image, options); });
          },
          py::arg("x"), py::arg("y"), py::arg("image"), py::kw_only(),
          py::arg("dither") = "threshold", py::arg("threshold") = 128.0, kSelf,
          "The image as the uncompressed BITMAP command; dither as for image().")
      .def(
          "rendered_text",
          [](PyLabel& self, int x, int y, std::string_view family, int dots,
             std::string_view content, bool bold, bool italic, int rotation) -> PyLabel& {
            const FontOptions options{bold, italic, rotation};
            return render(self,
                          [&](Label& l) { l.renderedText(x, y, family, dots, content, options); });
          },
          py::arg("x"), py::arg("y"), py::arg("family"), py::arg("dots"), py::arg("content"),
          py::kw_only(), py::arg("bold") = false, py::arg("italic") = false,
          py::arg("rotation") = 0, kSelf,
          "One line in an installed font family (\"DejaVu Sans\") at a size in dots, drawn on "
          "the host and sent as the compressed bitmap packet; characters the family lacks come "
          "from another installed font. rotation is clockwise: 0, 90, 180 or 270.")
      .def(
          "pdf_page",
          [](PyLabel& self, int x, int y, const PdfDocument& document, int page,
             std::string_view dither, double threshold) -> PyLabel& {
            const auto options = imageOptions(dither, threshold);
            return render(self, [&](Label& l) { l.pdfPage(x, y, document, page, options); });
          },
          py::arg("x"), py::arg("y"), py::arg("document"), py::arg("page") = 1, py::kw_only(),
          py::arg("dither") = "threshold", py::arg("threshold") = 128.0, kSelf,
          "A page (counted from 1) drawn at the label's resolution, as an image.")
      // --- Shapes, in dots
      .def(
          "bar",
          [](PyLabel& self, int x, int y, int width, int height) -> PyLabel& {
            return build(self, [&](Label& l) { l.bar(x, y, width, height); });
          },
          py::arg("x"), py::arg("y"), py::arg("width"), py::arg("height"), kSelf,
          "A filled rectangle: a line is a bar one way thin.")
      .def(
          "box",
          [](PyLabel& self, int x, int y, int xEnd, int yEnd, int thickness, int radius) -> PyLabel& {
            return build(self, [&](Label& l) { l.box(x, y, xEnd, yEnd, thickness, radius); });
          },
          py::arg("x"), py::arg("y"), py::arg("x_end"), py::arg("y_end"), py::kw_only(),
          py::arg("thickness") = 1, py::arg("radius") = 0, kSelf,
          "The outline of the rectangle from x, y to x_end, y_end, inside it; corners rounded "
          "by the radius when it is above 0.")
      .def(
          "reverse",
          [](PyLabel& self, int x, int y, int width, int height) -> PyLabel& {
            return build(self, [&](Label& l) { l.reverse(x, y, width, height); });
          },
          py::arg("x"), py::arg("y"), py::arg("width"), py::arg("height"), kSelf,
          "The rectangle's dots turned over: printed ones blank, blank ones printed.")
      .def(
          "erase",
          [](PyLabel& self, int x, int y, int width, int height) -> PyLabel& {
            return build(self, [&](Label& l) { l.erase(x, y, width, height); });
          },
          py::arg("x"), py::arg("y"), py::arg("width"), py::arg("height"), kSelf,
          "The rectangle's dots blank.")
      .def(
          "circle",
          [](PyLabel& self, int x, int y, int diameter, int thickness) -> PyLabel& {
            return build(self, [&](Label& l) { l.circle(x, y, diameter, thickness); });
          },
          py::arg("x"), py::arg("y"), py::arg("diameter"), py::kw_only(),
          py::arg("thickness") = 1, kSelf,
          "A ring inside the square of the diameter whose top left is x, y.")
      // --- Parts
      .def(
          "add",
          [](PyLabel& self, const PyLabel& part) -> PyLabel& {
            // A copy first: the part may be this label, and two labels are
            // never locked at once (a.add(b) beside b.add(a) cannot deadlock).
            const PyLabel copied(part);
            return build(self, [&](Label& l) { l.add(copied.label); });
          },
          py::arg("part"), kSelf,
          "The commands of another label, made for the same resolution, as they stand: a part "
          "built once and added to many labels.")
      // --- Output
      .def(
          "print",
          [](PyLabel& self, int sets, int copies) -> PyLabel& {
            return build(self, [&](Label& l) { l.print(sets, copies); });
          },
          py::arg("sets") = 1, py::arg("copies") = 1, kSelf,
          "Prints the image buffer: sets of labels, copies of each.")
      .def(
          "form_feed",
          [](PyLabel& self) -> PyLabel& { return build(self, [](Label& l) { l.formFeed(); }); },
          kSelf, "Feeds one blank label.")
      .def(
          "tear_off",
          [](PyLabel& self, bool on) -> PyLabel& {
            return build(self, [&](Label& l) { l.tearOff(on); });
          },
          py::arg("on") = true, kSelf,
          "Whether the printer feeds each label to the tear bar after printing.")
      .def(
          "raw",
          [](PyLabel& self, std::string_view line) -> PyLabel& {
            return build(self, [&](Label& l) { l.raw(line); });
          },
          py::arg("line"), kSelf,
          "A command line of the caller's, sent as it stands (CR LF added when it lacks a line "
          "end). Never put a user's text here.")
      .def(
          "download",
          [](PyLabel& self, std::string_view name, const py::object& data) -> PyLabel& {
            const BufferView bytes(data, "the file");
            return build(self, [&](Label& l) { l.download(name, bytes.bytes()); });
          },
          py::arg("name"), py::arg("data"), kSelf,
          "Stores a file (a font, an image, a program) in the printer under a name.")
      .def("__bytes__",
           [](const PyLabel& self) {
             LabelLock lock(self);
             return py::bytes(textOf(self.label.bytes()));
           })
      .def("__copy__", [](const PyLabel& self) { return PyLabel(self); })
      .def("__deepcopy__", [](const PyLabel& self, const py::object&) { return PyLabel(self); })
      .def("_repr_png_",
           [](const PyLabel& self) -> py::object {
             std::vector<Bytes> pngs;
             {
               py::gil_scoped_release released;
               std::lock_guard lock(self.busy);
               pngs = renderPngs(self.label.bytes(), self.label.dpi());
             }
             if (pngs.empty()) return py::none();
             return py::bytes(textOf(pngs.front()));
           },
           "The first label it prints, as PNG bytes (notebooks show it); None when it prints "
           "none.")
      .def("__repr__", [](const PyLabel& self) {
        LabelLock lock(self);
        return "<orvante.Label " + std::to_string(self.label.dpi()) + " dpi, " +
               std::to_string(self.label.bytes().size()) + " bytes>";
      });
}

}  // namespace orvante::python
