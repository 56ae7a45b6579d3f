// The C++ door's bytes for the labels the Python tests build with the
// same calls: `orvante_python_reference CASE [PDF]` writes them to
// standard output.

#include <cstdio>
#include <iostream>
#include <string>
#include <string_view>

#include <orvante/label.hpp>
#include <orvante/pdf.hpp>

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
  } else {
    std::cerr << "usage: orvante_python_reference commands|images|drawn PDF\n";
    return 2;
  }
  const auto& bytes = label.bytes();
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  return 0;
}
