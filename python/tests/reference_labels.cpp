// The C++ door's bytes for the labels the Python tests build with the
// same calls: `orvante_python_reference CASE [PDF]` writes them to
// standard output; `filled TEMPLATE NUMBER [FIELD=VALUE...]` the label
// of a template for a record of those fields.

#include <cstdio>
#include <iostream>
#include <string>
#include <string_view>

#include <orvante/label.hpp>
#include <orvante/pdf.hpp>
#include <orvante/template.hpp>

namespace {

// 64 x 40 pixels of colour ramps, opaque; test_label.py makes the same.
orvante::Image ramps() {
  const int width = 64, height = 40;
  orvante::Bytes rgba;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      rgba.insert(rgba.end(), {static_cast<std::uint8_t>(x * 4), static_cast<std::uint8_t>(y * 6),
                               static_cast<std::uint8_t>(x * y), 255});
    }
  }
  return orvante::Image(width, height, std::move(rgba));
}

orvante::Label commands() {
  orvante::Label label(203);
  label.size(50, 30).gap(2, 1).blackMark(3, 0.5).speed(4).density(8).clear()
      .text(20, 20, "3", "He said \"hi\"", {90, 2, 3, orvante::Encoding::Utf8})
      .text(20, 60, "TSS24.BF2", "收件人", {0, 1, 1, orvante::Encoding::Big5})
      .barcode(20, 80, "128", "ABC-123", 60, {false, 0, 3, 3})
      .tearOff(false)
      .formFeed()
      .raw("SET CUTTER OFF")
      .download("A.TXT", orvante::viewOf(std::string_view("hello\0world", 11)))
      .print(2, 3);
  return label;
}

orvante::Label images() {
  const auto picture = ramps();
  orvante::Label label(203);
  int x = 0;
  for (auto dither : {orvante::Dither::Threshold, orvante::Dither::FloydSteinberg,
                      orvante::Dither::Atkinson, orvante::Dither::Ordered4x4,
                      orvante::Dither::Ordered8x8, orvante::Dither::EdgeAware}) {
    label.image(x, 0, picture, {dither, 100});
    x += 64;
  }
  label.bitmap(0, 50, picture, {orvante::Dither::Atkinson});
  return label;
}

orvante::Label drawn(const std::string& pdf) {
  orvante::Label label(300);
  label.renderedText(10, 10, "DejaVu Sans", 32, "Grüße 123", {true, false, 90})
      .pdfPage(0, 300, orvante::PdfDocument::open(pdf), 1, {orvante::Dither::FloydSteinberg});
  return label;
}

orvante::Label shapes() {
  orvante::Label part(203);
  part.box(0, 0, 60, 40, 2).circle(10, 5, 30);
  orvante::Label label(203);
  label.size(50, 30).clear()
      .textBlock(10, 10, 200, 90, "2", "Words wrapped in a \"block\"",
                 {90, 2, 1, 4, orvante::Alignment::Center, orvante::Encoding::Utf8})
      .qrCode(220, 10, "https://example.com/p/1", {'H', 6, 90})
      .qrCode(300, 120, "plain")
      .bar(0, 200, 300, 2)
      .box(5, 5, 395, 235, 3, 10)
      .reverse(10, 10, 50, 20)
      .erase(60, 10, 20, 20)
      .circle(300, 100, 80, 2)
      .add(part)
      .add(part);
  return label;
}

orvante::Label filled(int argc, char** argv) {
  orvante::Record record(std::stoul(argv[3]));
  for (int i = 4; i < argc; ++i) {
    const std::string field = argv[i];
    const auto equals = field.find('=');
    record.set(field.substr(0, equals), field.substr(equals + 1));
  }
  return orvante::Template::load(argv[2]).fill(record);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string which = argc > 1 ? argv[1] : "";
  orvante::Label label;
  if (which == "commands") {
    label = commands();
  } else if (which == "images") {
    label = images();
  } else if (which == "drawn" && argc > 2) {
    label = drawn(argv[2]);
  } else if (which == "shapes") {
    label = shapes();
  } else if (which == "filled" && argc > 3) {
    label = filled(argc, argv);
  } else {
    std::cerr << "usage: orvante_python_reference commands|images|shapes|drawn PDF|"
                 "filled TEMPLATE NUMBER [FIELD=VALUE...]\n";
    return 2;
  }
  const auto& bytes = label.bytes();
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  return 0;
}
