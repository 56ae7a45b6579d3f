#include "elements.hpp"

#include <map>

namespace orvante::templating {
namespace {

using Draw = std::function<void(Label&, const std::string&)>;

const std::map<std::string, Dither, std::less<>> kDithers{
    {"threshold", Dither::Threshold},   {"fs", Dither::FloydSteinberg},
    {"floyd-steinberg", Dither::FloydSteinberg}, {"atkinson", Dither::Atkinson},
    {"ordered", Dither::Ordered4x4},    {"ordered8", Dither::Ordered8x8},
    {"edge", Dither::EdgeAware}};

const std::map<std::string, Alignment, std::less<>> kAlignments{
    {"left", Alignment::Left}, {"center", Alignment::Center}, {"right", Alignment::Right}};

Element printerText(const ElementReader& read, const ElementContext& context) {
  read.keys({"x", "y", "font", "text"}, {"rotation", "xMultiplier", "yMultiplier"});
  read.onLabel(context.area, "x", "y");
  const int x = read.integer("x", 0, 0xFFFF), y = read.integer("y", 0, 0xFFFF);
  const std::string font = read.name("font");
  const TextOptions options{read.rotation(), read.integer("xMultiplier", 1, 10, 1),
                            read.integer("yMultiplier", 1, 10, 1)};
  return {0, "text", read.placeholders("text"), [=](Label& label, const std::string& text) {
            label.text(x, y, font, text, options);
          }};
}

Element renderedText(const ElementReader& read, const ElementContext& context) {
  read.keys({"x", "y", "family", "dots", "text"}, {"rotation", "bold", "italic"});
  read.onLabel(context.area, "x", "y");
  const int x = read.integer("x", 0, 0xFFFF), y = read.integer("y", 0, 0xFFFF);
  const std::string family = read.text("family");
  if (family.empty()) read.fail("family", "names no font family");
  const int dots = read.integer("dots", 1, 2000);
  const FontOptions options{read.flag("bold", false), read.flag("italic", false), read.rotation()};
  return {0, "text", read.placeholders("text"),
          [=](Label& label, const std::string& text) {
            label.renderedText(x, y, family, dots, text, options);
          },
          true};
}

Element textBlock(const ElementReader& read, const ElementContext& context) {
  read.keys({"x", "y", "width", "height", "font", "text"},
            {"rotation", "xMultiplier", "yMultiplier", "lineSpacing", "align"});
  read.onLabel(context.area, "x", "y");
  const int x = read.integer("x", 0, 0xFFFF), y = read.integer("y", 0, 0xFFFF);
  const int width = read.integer("width", 1, 0xFFFF), height = read.integer("height", 1, 0xFFFF);
  read.fits(context.area, "width", width, height, "the block");
  const std::string font = read.name("font");
  const std::string align = read.text("align", "left");
  const auto alignment = kAlignments.find(align);
  if (alignment == kAlignments.end()) read.fail("align", "must be left, center or right, not \"" + align + "\"");
  const TextBlockOptions options{read.rotation(), read.integer("xMultiplier", 1, 10, 1),
                                 read.integer("yMultiplier", 1, 10, 1),
                                 read.integer("lineSpacing", 0, 0xFFFF, 0), alignment->second};
  return {0, "text", read.placeholders("text"), [=](Label& label, const std::string& text) {
            label.textBlock(x, y, width, height, font, text, options);
          }};
}

Element barcode(const ElementReader& read, const ElementContext& context) {
  read.keys({"x", "y", "symbology", "height", "code"}, {"readable", "rotation", "narrow", "wide"});
  read.onLabel(context.area, "x", "y");
  const int x = read.integer("x", 0, 0xFFFF), y = read.integer("y", 0, 0xFFFF);
  const int height = read.integer("height", 1, 0xFFFF);
  read.fits(context.area, "height", 0, height, "the barcode");
  const std::string symbology = read.name("symbology");
  const BarcodeOptions options{read.flag("readable", true), read.rotation(),
                               read.integer("narrow", 1, 10, 2), read.integer("wide", 1, 30, 2)};
  try {
    Label().barcode(0, 0, symbology, "0", 1);
  } catch (const std::invalid_argument& unknown) {
    read.fail("symbology", unknown.what());
  }
  return {0, "code", read.placeholders("code"), [=](Label& label, const std::string& code) {
            label.barcode(x, y, symbology, code, height, options);
          }};
}

Element qrCode(const ElementReader& read, const ElementContext& context) {
  read.keys({"x", "y", "data"}, {"cell", "errorCorrection", "rotation"});
  read.onLabel(context.area, "x", "y");
  const int x = read.integer("x", 0, 0xFFFF), y = read.integer("y", 0, 0xFFFF);
  const std::string level = read.text("errorCorrection", "M");
  if (level != "L" && level != "M" && level != "Q" && level != "H") {
    read.fail("errorCorrection", "must be L, M, Q or H, not \"" + level + "\"");
  }
  const QrCodeOptions options{level[0], read.integer("cell", 1, 20, 4), read.rotation()};
  return {0, "data", read.placeholders("data"), [=](Label& label, const std::string& data) {
            label.qrCode(x, y, data, options);
          }};
}

Element image(const ElementReader& read, const ElementContext& context) {
  read.keys({"x", "y", "path"}, {"dither", "threshold"});
  read.onLabel(context.area, "x", "y");
  const int x = read.integer("x", 0, 0xFFFF), y = read.integer("y", 0, 0xFFFF);
  const std::string name = read.text("dither", "threshold");
  const auto dither = kDithers.find(name);
  if (dither == kDithers.end()) {
    read.fail("dither", "must be threshold, fs, atkinson, ordered, ordered8 or edge, not \"" +
                            name + "\"");
  }
  const ImageOptions options{dither->second, read.has("threshold") ? read.number("threshold", 0, 256) : 128};
  std::filesystem::path path = read.text("path");
  if (path.is_relative()) path = context.folder / path;
  // Decoded here, once; dithered once when the template builds the element.
  const Image picture = Image::fromFile(path.string());
  if (picture.empty()) read.fail("path", "cannot read an image from " + path.string());
  read.fits(context.area, "path", picture.pixelWidth(), picture.pixelHeight(), "the image");
  return {0, "", {}, [=](Label& label, const std::string&) { label.image(x, y, picture, options); }};
}

Element box(const ElementReader& read, const ElementContext& context) {
  read.keys({"x", "y", "x2", "y2"}, {"thickness", "radius"});
  read.onLabel(context.area, "x", "y");
  const int x = read.integer("x", 0, 0xFFFF), y = read.integer("y", 0, 0xFFFF);
  const int x2 = read.edge(context.area, "x2", true), y2 = read.edge(context.area, "y2", false);
  if (x2 <= x) read.fail("x2", "must be right of x (" + std::to_string(x) + ")");
  if (y2 <= y) read.fail("y2", "must be below y (" + std::to_string(y) + ")");
  const int thickness = read.integer("thickness", 1, 0xFFFF, 1);
  const int radius = read.integer("radius", 0, 0xFFFF, 0);
  return {0, "", {}, [=](Label& label, const std::string&) {
            label.box(x, y, x2, y2, thickness, radius);
          }};
}

// line (a bar), reverse and erase: a rectangle by its corner and size.
Element rectangle(const ElementReader& read, const ElementContext& context,
                  Label& (Label::*shape)(int, int, int, int), const char* what) {
  read.keys({"x", "y", "width", "height"}, {});
  read.onLabel(context.area, "x", "y");
  const int x = read.integer("x", 0, 0xFFFF), y = read.integer("y", 0, 0xFFFF);
  const int width = read.integer("width", 1, 0xFFFF), height = read.integer("height", 1, 0xFFFF);
  read.fits(context.area, "width", width, height, what);
  return {0, "", {}, [=](Label& label, const std::string&) {
            (label.*shape)(x, y, width, height);
          }};
}

Element circle(const ElementReader& read, const ElementContext& context) {
  read.keys({"x", "y", "diameter"}, {"thickness"});
  read.onLabel(context.area, "x", "y");
  const int x = read.integer("x", 0, 0xFFFF), y = read.integer("y", 0, 0xFFFF);
  const int diameter = read.integer("diameter", 1, 0xFFFF);
  read.fits(context.area, "diameter", diameter, diameter, "the circle");
  const int thickness = read.integer("thickness", 1, 0xFFFF, 1);
  return {0, "", {}, [=](Label& label, const std::string&) {
            label.circle(x, y, diameter, thickness);
          }};
}

constexpr const char* kTypes =
    "text, block, barcode, qr, image, box, line, reverse, erase or circle";

}  // namespace

Element readElement(const nlohmann::json& object, int index, const ElementContext& context) {
  if (!object.is_object()) {
    throw TemplateError(index, "", "an element is a JSON object, {\"type\": ..., ...}");
  }
  const auto type = object.find("type");
  if (type == object.end()) throw TemplateError(index, "type", "missing; an element is a " + std::string(kTypes));
  if (!type->is_string()) throw TemplateError(index, "type", "must be " + std::string(kTypes));
  const std::string name = type->get<std::string>();
  const std::string what = "a" + std::string(name == "image" ? "n " : " ") + name + " element";
  const ElementReader read(object, index, what);
  Element element;
  if (name == "text") {
    element = object.contains("family") || object.contains("dots")
                  ? renderedText(ElementReader(object, index, "a text element in an installed font"), context)
                  : printerText(read, context);
  } else if (name == "block") {
    element = textBlock(read, context);
  } else if (name == "barcode") {
    element = barcode(read, context);
  } else if (name == "qr") {
    element = qrCode(read, context);
  } else if (name == "image") {
    element = image(read, context);
  } else if (name == "box") {
    element = box(read, context);
  } else if (name == "line") {
    element = rectangle(read, context, &Label::bar, "the line");
  } else if (name == "reverse") {
    element = rectangle(read, context, &Label::reverse, "the reversed area");
  } else if (name == "erase") {
    element = rectangle(read, context, &Label::erase, "the erased area");
  } else if (name == "circle") {
    element = circle(read, context);
  } else {
    throw TemplateError(index, "type", "unknown element type \"" + name + "\"; an element is a " + kTypes);
  }
  element.index = index;
  return element;
}

}  // namespace orvante::templating
