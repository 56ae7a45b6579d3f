// orvante::Template: placeholders filled into exactly the label Label
// builds, wrong templates refused with the element and the key before
// anything is sent, records that cannot print refused with their line,
// images decoded and dithered once, and a record's hostile text printed as
// given or refused, never a command.

#include <cairo.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <orvante/template.hpp>
#include <orvante/vprinter/engine.hpp>

#include "journal.hpp"

using namespace orvante;
namespace fs = std::filesystem;

namespace {

// The README's template without its image: a label of 799 x 480 dots.
const std::string kElements = R"(
  {"type": "text", "x": 20, "y": 20, "font": "3", "text": "${name}"},
  {"type": "text", "x": 20, "y": 60, "family": "DejaVu Sans", "dots": 28, "text": "${city} ${zip}"},
  {"type": "barcode", "x": 20, "y": 110, "symbology": "128", "height": 80, "code": "${sku}"},
  {"type": "qr", "x": 560, "y": 20, "cell": 6, "data": "https://example.com/p/${sku}"},
  {"type": "box", "x": 5, "y": 5, "x2": 795, "y2": 475, "thickness": 3},
  {"type": "text", "x": 20, "y": 400, "font": "2", "text": "No. ${n:%06d}"})";

std::string templateOf(const std::string& elements, const std::string& extra = "") {
  return R"({"size": [100, 60], "gap": 2, "dpi": 203, "copies": 1, )" + extra +
         R"("elements": [)" + elements + "]}";
}

Record recordOf(std::size_t number, std::size_t line,
                std::initializer_list<std::pair<const char*, const char*>> fields) {
  Record record(number, line);
  for (const auto& [name, value] : fields) record.set(name, value);
  return record;
}

const Record kAda = recordOf(7, 8, {{"name", "Ada \"The Countess\""}, {"city", "北京"},
                                    {"zip", "100000"}, {"sku", "SKU-42"}});

Label labelStart() {
  Label label;
  label.size(100, 60).gap(2).clear();
  return label;
}

template <typename Failure>
std::string refusal(const std::function<void()>& act) {
  try {
    act();
  } catch (const Failure& refused) {
    return refused.what();
  }
  return "accepted";
}

void writeLogo(const fs::path& path, int width, int height) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  cairo_t* cairo = cairo_create(surface);
  cairo_set_source_rgb(cairo, 1, 1, 1);
  cairo_paint(cairo);
  cairo_set_source_rgb(cairo, 0.3, 0.3, 0.3);  // a grey the dithering breaks into dots
  cairo_rectangle(cairo, 4, 4, width - 8, height - 8);
  cairo_fill(cairo);
  cairo_destroy(cairo);
  cairo_surface_write_to_png(surface, path.c_str());
  cairo_surface_destroy(surface);
}

}  // namespace

TEST(Template, PlaceholdersFillTheLabelLabelBuilds) {
  const Template layout = Template::parse(templateOf(kElements));
  Label expected = labelStart();
  expected.text(20, 20, "3", "Ada \"The Countess\"")
      .renderedText(20, 60, "DejaVu Sans", 28, "北京 100000")
      .barcode(20, 110, "128", "SKU-42", 80)
      .qrCode(560, 20, "https://example.com/p/SKU-42", {'M', 6, 0})
      .box(5, 5, 795, 475, 3)
      .text(20, 400, "2", "No. 000007")
      .print(1, 1);
  EXPECT_EQ(layout.fill(kAda).bytes(), expected.bytes());
  EXPECT_EQ(layout.fields(), (std::vector<std::string>{"name", "city", "zip", "sku"}));

  // Formats, defaults, $$ and a record's copies.
  const Template priced = Template::parse(templateOf(
      R"({"type": "text", "x": 0, "y": 0, "font": "1",
          "text": "$$${price:%.2f} ${qty:%+04d} ${qty:%x} ${code:%08.3e} ${city}"})",
      R"("defaults": {"city": "Berlin", "code": 1}, )"));
  Record record = recordOf(1, 2, {{"price", " 3.5"}, {"qty", "42"}, {"copies", "3"}});
  EXPECT_EQ(priced.fill(record).bytes(),
            labelStart().text(0, 0, "1", "$3.50 +042 2a 1.000e+00 Berlin").print(1, 3).bytes());
}

TEST(Template, RecordsThatCannotPrintAreRefusedWithTheirLine) {
  const Template layout = Template::parse(templateOf(kElements));
  const auto refused = [&](Record record) {
    return refusal<RecordError>([&] { layout.fill(record); });
  };
  Record noZip = kAda;
  noZip = recordOf(3, 4, {{"name", "x"}, {"city", "y"}, {"sku", "z"}});
  EXPECT_EQ(refused(noZip),
            "line 4: elements[1].text: the record has no field \"zip\" and the template no "
            "default for it");
  Record hostile = kAda;
  hostile.set("name", "A\"\r\nKILL \"*\"");
  EXPECT_EQ(refused(hostile),
            "line 8: elements[0].text: the content holds a carriage return at position 3: a "
            "command line cannot carry it");
  Record emptyCode = kAda;
  emptyCode.set("sku", "");
  EXPECT_EQ(refused(emptyCode), "line 8: elements[2].code: a barcode needs a code to encode");
  Record copies = kAda;
  copies.set("copies", "two");
  EXPECT_EQ(refused(copies), "line 8: copies: \"two\" is not a whole number of 1 to 1000000");
  const Template numbered = Template::parse(
      templateOf(R"({"type": "text", "x": 0, "y": 0, "font": "1", "text": "${qty:%u}"})"));
  EXPECT_EQ(refusal<RecordError>([&] { numbered.fill(recordOf(1, 9, {{"qty", "-3"}})); }),
            "line 9: elements[0].text: ${qty:%u}: \"-3\" is not a whole number of 0 or more, "
            "which %u needs");
  EXPECT_EQ(refusal<RecordError>([&] { numbered.fill(recordOf(1, 9, {{"qty", "3 boxes"}})); }),
            "line 9: elements[0].text: ${qty:%u}: \"3 boxes\" is not a whole number of 0 or "
            "more, which %u needs");
}

TEST(Template, WrongTemplatesAreRefusedWithTheElementAndTheKey) {
  const fs::path folder = ::testing::TempDir();
  const std::pair<std::string, std::string> cases[] = {
      {templateOf(R"({"type": "arrow", "x": 0, "y": 0})"),
       "elements[0].type: unknown element type \"arrow\"; an element is a text, block, barcode, "
       "qr, image, box, line, reverse, erase or circle"},
      {templateOf(R"({"type": "qr", "x": 0, "y": 0, "data": "x", "colour": "red"})"),
       "elements[0].colour: unknown key; a qr element takes x, y, data, cell, errorCorrection, "
       "rotation"},
      {templateOf(R"({"type": "barcode", "x": 0, "y": 0, "symbology": "128", "code": "1"})"),
       "elements[0].height: missing; a barcode element needs x, y, symbology, height, code"},
      {templateOf(R"({"type": "text", "x": 0, "y": 0, "font": "1", "text": "${n:%06s}"})"),
       "elements[0].text: the format \"%06s\" of ${n:%06s} is not one printf conversion of a "
       "number (such as %06d, %.2f or %x)"},
      {templateOf(R"({"type": "text", "x": 0, "y": 0, "font": "1", "text": "No. ${n:%d%n}"})"),
       "elements[0].text: the format \"%d%n\" of ${n:%d%n} is not one printf conversion of a "
       "number (such as %06d, %.2f or %x)"},
      {templateOf(R"({"type": "text", "x": 0, "y": 0, "font": "1", "text": "${name"})"),
       "elements[0].text: the placeholder at character 1 has no closing '}'"},
      {templateOf(R"({"type": "image", "x": 0, "y": 0, "path": "missing.png"})"),
       "elements[0].path: cannot read an image from " + (folder / "missing.png").string()},
      {templateOf(R"({"type": "text", "x": 800, "y": 0, "font": "1", "text": "x"})"),
       "elements[0].x: 800 is outside the label of 799 x 480 dots"},
      {templateOf(R"({"type": "box", "x": 5, "y": 5, "x2": 795, "y2": 481})"),
       "elements[0].y2: 481 is outside the label of 799 x 480 dots"},
      {templateOf(R"({"type": "line", "x": 700, "y": 0, "width": 101, "height": 3})"),
       "elements[0].width: the line of 101 x 3 dots at 700,0 reaches past the label of 799 x 480 "
       "dots"},
      {templateOf(R"({"type": "text", "x": 0, "y": 0, "family": "DejaVu Sans", "dots": 300,
                      "text": "far too wide for the label"})"),
       "elements[0].text: the text of * dots at 0,0 does not fit on the label of 799 x 480 dots"},
      {templateOf(R"({"type": "barcode", "x": 0, "y": 0, "symbology": "QUX", "height": 9, "code": "1"})"),
       "elements[0].symbology: the printer knows no barcode type \"QUX\""},
      {templateOf(R"({"type": "text", "x": 0, "y": 0, "font": "1", "text": "x", "rotation": 45})"),
       "elements[0].rotation: must be 0, 90, 180 or 270, not 45"},
      {templateOf(R"({"type": "text", "x": 1.5, "y": 0, "font": "1", "text": "x"})"),
       "elements[0].x: must be a whole number, not 1.5"},
      {R"({"size": [100, 60], "gap": 2, "colour": "red", "elements": []})",
       "colour: unknown key; a template takes size, elements, gap, blackMark, dpi, copies, speed, "
       "density, defaults"},
      {R"({"size": [100], "elements": []})", "size: must be [width, height] in mm, each above 0, not [100]"},
      {R"({"size": [100, 60], "elements": [)", "the template: not JSON: parse error at line 1, column 34: syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal"},
  };
  for (const auto& [text, message] : cases) {
    const std::string refused = refusal<TemplateError>([&] { Template::parse(text, folder); });
    // A * stands for what the installed fonts decide.
    const auto star = message.find('*');
    if (star == std::string::npos) {
      EXPECT_EQ(refused, message) << text;
    } else {
      EXPECT_TRUE(refused.starts_with(message.substr(0, star)) &&
                  refused.ends_with(message.substr(star + 1)))
          << refused;
    }
  }
  TemplateError error(3, "x", "why");
  EXPECT_EQ(error.element(), 3);
  EXPECT_EQ(error.key(), "x");
}

TEST(Template, AnImageIsDecodedAndDitheredOnceWhenTheTemplateIsRead) {
  const fs::path folder = fs::path(::testing::TempDir()) / "template-image";
  fs::create_directories(folder);
  writeLogo(folder / "logo.png", 120, 60);
  const Image logo = Image::fromFile((folder / "logo.png").string());
  std::ofstream(folder / "label.json") << templateOf(
      R"({"type": "image", "x": 600, "y": 300, "path": "logo.png", "dither": "atkinson"},
         {"type": "text", "x": 20, "y": 20, "font": "3", "text": "${name}"})");
  const Template layout = Template::load(folder / "label.json");
  // The file is no longer needed: every label takes the packet built at load.
  fs::remove(folder / "logo.png");
  for (const char* name : {"Ada", "Grace"}) {
    Label expected = labelStart();
    expected.image(600, 300, logo, {Dither::Atkinson}).text(20, 20, "3", name).print();
    EXPECT_EQ(layout.fill(recordOf(1, 2, {{"name", name}})).bytes(), expected.bytes());
  }
}

TEST(Template, AHostileRecordPrintsAsGivenOrIsRefusedNeverACommand) {
  const Template layout = Template::parse(templateOf(
      R"({"type": "text", "x": 20, "y": 20, "font": "3", "text": "${name}"},
         {"type": "barcode", "x": 20, "y": 110, "symbology": "128", "height": 80, "code": "${name}"},
         {"type": "qr", "x": 560, "y": 20, "data": "${name}"},
         {"type": "block", "x": 20, "y": 300, "width": 400, "height": 100, "font": "2", "text": "${name}"})"));
  const std::vector<std::string> hostile = {
      "A\"\r\nKILL \"*\"",  "x\"\r\nSET TEAR OFF", "He said \"hi\"", "price ~!F", "\x1B!R",
      ",\",\",",            "back\\slash \\[\"]",  "價格 \"Preis\"", "\"",         "tab\there"};
  int printed = 0;
  for (const std::string& name : hostile) {
    Label label;
    try {
      label = layout.fill(recordOf(1, 2, {{"name", name.c_str()}}));
    } catch (const RecordError& refused) {
      EXPECT_TRUE(std::string(refused.what()).starts_with("line 2: elements[0].text: the content holds"))
          << refused.what();
      continue;
    }
    ++printed;
    std::vector<std::string> commands, lines;
    vprinter::Options options;
    options.onJournal = [&](std::string_view line) {
      const auto at = line.find("\"command\":\"") + 11;
      commands.emplace_back(line.substr(at, line.find('"', at) - at));
      lines.emplace_back(line);
    };
    vprinter::Engine engine(options);
    engine.feed(1, label.bytes());
    ASSERT_EQ(commands, (std::vector<std::string>{"SIZE", "GAP", "CLS", "TEXT", "BARCODE", "QRCODE",
                                                  "BLOCK", "PRINT"}))
        << name;
    // The text, the QR code's data and the block's text, each as given.
    for (std::size_t at : {3, 5, 6}) {
      EXPECT_NE(lines[at].find("," + vprinter::jsonString(name) + "]"), std::string::npos) << lines[at];
    }
  }
  EXPECT_EQ(printed, 5);
}
