// orvante label and orvante image: a label built from the command line,
// sent to the printer or written out as bytes.

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>

#include <orvante/image.hpp>
#include <orvante/label.hpp>
#include <orvante/pdf.hpp>

#include "cli.hpp"

namespace orvante::cli {
namespace {

struct Media {
  std::string size;  // WxH in mm
  double gap = 2;
  double blackMark = 0;
  int dpi = 203;
  int copies = 1;
  std::string output;  // a file, or - for standard output, instead of the printer
};

void addMediaOptions(CLI::App& command, Media& media) {
  command.add_option("--size", media.size, "the label's size in mm, as WIDTHxHEIGHT (50x30)");
  command.add_option("--gap", media.gap, "the gap between labels, in mm");
  command.add_option("--black-mark", media.blackMark, "sense black marks of this height, in mm");
  command.add_option("--dpi", media.dpi, "the printer's resolution")->check(CLI::PositiveNumber);
  command.add_option("--copies", media.copies, "how many copies to print")->check(CLI::PositiveNumber);
  command.add_option("-o,--output", media.output,
                     "write the label's bytes to this file (- for standard output) instead of "
                     "sending them");
}

std::pair<double, double> parseSize(const std::string& text) {
  const auto x = text.find('x');
  try {
    if (x != std::string::npos) return {std::stod(text.substr(0, x)), std::stod(text.substr(x + 1))};
  } catch (const std::exception&) {
  }
  throw std::invalid_argument("the size \"" + text + "\" is not WIDTHxHEIGHT in mm, such as 50x30");
}

// Splits "a,b,c,rest" into count fields, the last taking the rest.
std::vector<std::string> fields(const std::string& text, std::size_t count, const char* form) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (parts.size() + 1 < count) {
    const auto comma = text.find(',', start);
    if (comma == std::string::npos) break;
    parts.push_back(text.substr(start, comma - start));
    start = comma + 1;
  }
  parts.push_back(text.substr(start));
  if (parts.size() != count) {
    throw std::invalid_argument("\"" + text + "\" is not " + form);
  }
  return parts;
}

int number(const std::string& text, const std::string& what) {
  try {
    std::size_t used = 0;
    const int value = std::stoi(text, &used);
    if (used == text.size()) return value;
  } catch (const std::exception&) {
  }
  throw std::invalid_argument(what + " \"" + text + "\" is not a whole number");
}

Label startLabel(const Media& media) {
  Label label(media.dpi);
  if (!media.size.empty()) {
    const auto [width, height] = parseSize(media.size);
    label.size(width, height);
  }
  if (media.blackMark > 0) label.blackMark(media.blackMark);
  else label.gap(media.gap);
  label.clear();
  return label;
}

void deliver(const Label& label, const Media& media, const Options& options) {
  if (media.output == "-") {
    std::cout.write(reinterpret_cast<const char*>(label.bytes().data()),
                    static_cast<std::streamsize>(label.bytes().size()));
    std::cout.flush();
    return;
  }
  if (!media.output.empty()) {
    std::ofstream file(media.output, std::ios::binary);
    file.write(reinterpret_cast<const char*>(label.bytes().data()),
               static_cast<std::streamsize>(label.bytes().size()));
    if (!file) throw std::runtime_error("cannot write " + media.output);
    return;
  }
  auto printer = openPrinter(options);
  showProgress(printer);
  printer.print(label);
}

const std::map<std::string, Dither> kDithers{
    {"threshold", Dither::Threshold}, {"fs", Dither::FloydSteinberg},
    {"atkinson", Dither::Atkinson},   {"ordered", Dither::Ordered4x4},
    {"ordered8", Dither::Ordered8x8}, {"edge", Dither::EdgeAware}};

void addText(CLI::App& app, const Options& options) {
  auto* text = app.add_subcommand("text", "print a line in an installed font (Chinese too)");
  auto media = std::make_shared<Media>();
  auto content = std::make_shared<std::string>();
  auto family = std::make_shared<std::string>("DejaVu Sans");
  auto dots = std::make_shared<int>(32);
  auto at = std::make_shared<std::string>("10,10");
  auto font = std::make_shared<FontOptions>();
  addMediaOptions(*text, *media);
  text->add_option("content", *content, "the text")->required();
  text->add_option("--font", *family, "an installed font family");
  text->add_option("--height", *dots, "the text's size in dots")->check(CLI::Range(1, 2000));
  text->add_option("--at", *at, "where the text's top left corner goes, as X,Y in dots");
  text->add_flag("--bold", font->bold, "the family's bold face");
  text->add_flag("--italic", font->italic, "the family's italic face");
  text->add_option("--rotate", font->rotation, "0, 90, 180 or 270 degrees, clockwise");
  text->callback([=, &options] {
    const auto f = fields(*at, 2, "X,Y");
    Label built = startLabel(*media);
    built.renderedText(number(f[0], "x"), number(f[1], "y"), *family, *dots, *content, *font);
    built.print(1, media->copies);
    deliver(built, *media, options);
  });
}

void addPdf(CLI::App& app, const Options& options) {
  auto* pdf = app.add_subcommand("pdf", "print the pages of a PDF, one label each");
  auto media = std::make_shared<Media>();
  auto path = std::make_shared<std::string>();
  auto pages = std::make_shared<std::vector<int>>();
  auto dither = std::make_shared<std::string>("threshold");
  addMediaOptions(*pdf, *media);
  pdf->add_option("file", *path, "the PDF file")->required();
  pdf->add_option("--page", *pages, "a page to print, from 1 (default: every page)");
  pdf->add_option("--dither", *dither, "threshold, fs, atkinson, ordered, ordered8 or edge")
      ->check(CLI::IsMember({"threshold", "fs", "atkinson", "ordered", "ordered8", "edge"}));
  pdf->callback([=, &options] {
    const auto document = PdfDocument::open(*path);
    if (document.pageCount() == 0) throw std::runtime_error("cannot read a PDF from " + *path);
    std::vector<int> wanted = *pages;
    if (wanted.empty()) {
      for (int page = 1; page <= document.pageCount(); ++page) wanted.push_back(page);
    }
    Label built = startLabel(*media);
    const bool report = ::isatty(STDERR_FILENO) && wanted.size() > 1;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      if (report) std::fprintf(stderr, "\rdrawing page %zu of %zu", i + 1, wanted.size());
      built.pdfPage(0, 0, document, wanted[i], {kDithers.at(*dither)});
      built.print(1, media->copies);
      if (i + 1 < wanted.size()) built.clear();
    }
    if (report) std::fputc('\n', stderr);
    deliver(built, *media, options);
  });
}

}  // namespace

void addLabelCommands(CLI::App& app, const Options& options) {
  addText(app, options);
  addPdf(app, options);
  auto* label = app.add_subcommand("label", "print a label of printer-font text and barcodes");
  auto media = std::make_shared<Media>();
  auto texts = std::make_shared<std::vector<std::string>>();
  auto barcodes = std::make_shared<std::vector<std::string>>();
  addMediaOptions(*label, *media);
  label->add_option("-t,--text", *texts, "printer-font text: X,Y,FONT,CONTENT (fonts 1 to 8)");
  label->add_option("-b,--barcode", *barcodes, "a barcode: X,Y,TYPE,HEIGHT,CODE (TYPE 128, 39, EAN13...)");
  label->callback([=, &options] {
    Label built = startLabel(*media);
    for (const auto& text : *texts) {
      const auto f = fields(text, 4, "X,Y,FONT,CONTENT");
      built.text(number(f[0], "x"), number(f[1], "y"), f[2], f[3]);
    }
    for (const auto& code : *barcodes) {
      const auto f = fields(code, 5, "X,Y,TYPE,HEIGHT,CODE");
      built.barcode(number(f[0], "x"), number(f[1], "y"), f[2], f[4], number(f[3], "the height"));
    }
    built.print(1, media->copies);
    deliver(built, *media, options);
  });

  auto* image = app.add_subcommand("image", "print an image (PNG, JPEG, GIF, BMP)");
  auto imageMedia = std::make_shared<Media>();
  auto path = std::make_shared<std::string>();
  auto at = std::make_shared<std::string>("0,0");
  auto threshold = std::make_shared<double>(128);
  auto dither = std::make_shared<std::string>("threshold");
  addMediaOptions(*image, *imageMedia);
  image->add_option("file", *path, "the image file")->required();
  image->add_option("--at", *at, "where the image's top left corner goes, as X,Y in dots");
  image->add_option("--threshold", *threshold, "the grey (0 to 255) below which a dot prints")
      ->check(CLI::Range(0.0, 256.0));
  image->add_option("--dither", *dither, "threshold, fs, atkinson, ordered, ordered8 or edge")
      ->check(CLI::IsMember({"threshold", "fs", "atkinson", "ordered", "ordered8", "edge"}));
  image->callback([=, &options] {
    const Image picture = Image::fromFile(*path);
    if (picture.empty()) throw std::runtime_error("cannot read an image from " + *path);
    const auto f = fields(*at, 2, "X,Y");
    Label built = startLabel(*imageMedia);
    built.image(number(f[0], "x"), number(f[1], "y"), picture, {kDithers.at(*dither), *threshold});
    built.print(1, imageMedia->copies);
    deliver(built, *imageMedia, options);
  });
}

}  // namespace orvante::cli
