// orvante::Template: a label's layout read from JSON, checked whole when
// it is read, filled with a record per label. Elements without
// placeholders (images above all) are built once, when it is read, and
// added to each label as they stand.

#include <orvante/error.hpp>
#include <orvante/template.hpp>

#include <nlohmann/json.hpp>

#include <charconv>
#include <cmath>
#include <fstream>
#include <iterator>
#include <optional>

#include "digest.hpp"
#include "elements.hpp"

namespace orvante {

using json = nlohmann::json;

namespace {

std::string where(int element, const std::string& key) {
  if (element < 0) return key.empty() ? "the template" : key;
  return "elements[" + std::to_string(element) + "]" + (key.empty() ? "" : "." + key);
}

// The most copies one record may ask for.
constexpr long long kMostCopies = 1000000;

// A value of "gap" or "blackMark": the distance, or [distance, offset].
std::pair<double, double> media(const json& value, const std::string& key, bool mark) {
  const double least = mark ? 0.1 : 0;
  const auto distance = [&](const json& number, const char* what) {
    if (!number.is_number() || number.get<double>() < least || number.get<double>() > 1000) {
      throw TemplateError(-1, key, std::string(what) + " must be a number of mm, " +
                                       (mark ? "above 0" : "0 or more") + ", not " + number.dump());
    }
    return number.get<double>();
  };
  if (value.is_array() && value.size() == 2) {
    return {distance(value[0], "the distance"), distance(value[1], "the offset")};
  }
  return {distance(value, "the distance"), 0.0};
}

templating::Defaults defaultsOf(const json& given) {
  if (!given.is_object()) {
    throw TemplateError(-1, "defaults", "must be an object of fields and values, {\"city\": \"Berlin\"}");
  }
  templating::Defaults defaults;
  for (const auto& [field, value] : given.items()) {
    if (value.is_string()) defaults[field] = value.get<std::string>();
    else if (value.is_number() || value.is_boolean()) defaults[field] = value.dump();
    else throw TemplateError(-1, "defaults." + field, "a default is text, a number or true or false");
  }
  return defaults;
}

}  // namespace

TemplateError::TemplateError(int element, std::string key, const std::string& why)
    : std::invalid_argument(where(element, key) + ": " + why), element_(element), key_(std::move(key)) {}

RecordError::RecordError(std::size_t line, const std::string& reason)
    : std::invalid_argument("line " + std::to_string(line) + ": " + reason), line_(line),
      reason_(reason) {}

struct Template::Compiled {
  int dpi = 203;
  int copies = 1;
  Label header;  // size, media and CLS: the start of every label
  templating::Defaults defaults;
  // An element built once (part), or drawn with its text from each record.
  struct Step {
    templating::Element element;
    std::optional<Label> part;
  };
  std::vector<Step> steps;
  std::vector<std::string> fields;
  std::string fingerprint;
};

Template::Template(std::shared_ptr<const Compiled> compiled) : compiled_(std::move(compiled)) {}

Template Template::load(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw Error("cannot read the template " + file.string());
  const std::string text(std::istreambuf_iterator<char>(in), {});
  return parse(text, file.parent_path().empty() ? "." : file.parent_path());
}

Template Template::parse(std::string_view text, const std::filesystem::path& folder) {
  json root;
  try {
    root = json::parse(text);
  } catch (const json::exception& error) {
    std::string why = error.what();
    if (const auto close = why.find("] "); why.starts_with("[") && close != std::string::npos) {
      why.erase(0, close + 2);
    }
    throw TemplateError(-1, "", "not JSON: " + why);
  }
  if (!root.is_object()) throw TemplateError(-1, "", "a template is a JSON object, {\"size\": ...}");
  const templating::ElementReader read(root, -1, "a template");
  read.keys({"size", "elements"}, {"gap", "blackMark", "dpi", "copies", "speed", "density", "defaults"});

  auto compiled = std::make_shared<Compiled>();
  compiled->dpi = read.integer("dpi", 50, 2400, 203);
  compiled->copies = read.integer("copies", 1, 1000000, 1);
  const json& size = root["size"];
  if (!size.is_array() || size.size() != 2 || !size[0].is_number() || !size[1].is_number() ||
      !(size[0].get<double>() > 0 && size[0].get<double>() <= 2000) ||
      !(size[1].get<double>() > 0 && size[1].get<double>() <= 2000)) {
    throw TemplateError(-1, "size", "must be [width, height] in mm, each above 0, not " + size.dump());
  }
  const double width = size[0].get<double>(), height = size[1].get<double>();
  if (read.has("gap") && read.has("blackMark")) {
    throw TemplateError(-1, "blackMark", "give either gap or blackMark, not both");
  }
  Label& header = compiled->header = Label(compiled->dpi);
  header.size(width, height);
  if (read.has("gap")) {
    const auto [gap, offset] = media(root["gap"], "gap", false);
    header.gap(gap, offset);
  }
  if (read.has("blackMark")) {
    const auto [mark, offset] = media(root["blackMark"], "blackMark", true);
    header.blackMark(mark, offset);
  }
  if (read.has("speed")) header.speed(read.number("speed", 0.5, 20));
  if (read.has("density")) header.density(read.integer("density", 0, 15));
  header.clear();
  if (read.has("defaults")) compiled->defaults = defaultsOf(root["defaults"]);

  const json& elements = root["elements"];
  if (!elements.is_array()) throw TemplateError(-1, "elements", "must be a list of elements, [...]");
  const double dotsPerMm = compiled->dpi / 25.4;
  const templating::ElementContext context{
      compiled->dpi,
      {static_cast<int>(std::lround(width * dotsPerMm)), static_cast<int>(std::lround(height * dotsPerMm))},
      folder};
  for (std::size_t index = 0; index < elements.size(); ++index) {
    Compiled::Step step{templating::readElement(elements[index], static_cast<int>(index), context), {}};
    const templating::Element& element = step.element;
    element.text.addFields(compiled->fields);
    if (element.text.constant()) {
      // Built once here; text in an installed font is drawn on a label of
      // the template's size first, so that text too wide is refused now.
      try {
        if (element.sizedWhenDrawn) {
          Label sized = compiled->header;
          element.draw(sized, element.text.literal());
        }
        step.part.emplace(compiled->dpi);
        element.draw(*step.part, element.text.literal());
      } catch (const std::invalid_argument& refused) {
        throw TemplateError(element.index, element.key.empty() ? "type" : element.key, refused.what());
      }
    }
    compiled->steps.push_back(std::move(step));
  }
  compiled->fingerprint = templating::Digest().add(root.dump()).hex();
  return Template(std::move(compiled));
}

Label Template::fill(const Record& record) const {
  const Compiled& compiled = *compiled_;
  Label label = compiled.header;
  std::string text;
  for (const Compiled::Step& step : compiled.steps) {
    if (step.part) {
      label.add(*step.part);
      continue;
    }
    text.clear();
    try {
      step.element.text.fill(record, compiled.defaults, text);
      step.element.draw(label, text);
    } catch (const std::invalid_argument& refused) {
      throw RecordError(record.line(), where(step.element.index, step.element.key) + ": " + refused.what());
    }
  }
  label.print(1, copies(record));
  return label;
}

int Template::copies(const Record& record) const {
  const std::string* given = record.find("copies");
  if (!given || given->empty()) return compiled_->copies;
  long long number = 0;
  const auto [end, error] = std::from_chars(given->data(), given->data() + given->size(), number);
  if (error != std::errc() || end != given->data() + given->size() || number < 1 ||
      number > kMostCopies) {
    throw RecordError(record.line(), "copies: \"" + *given + "\" is not a whole number of 1 to " +
                                         std::to_string(kMostCopies));
  }
  return static_cast<int>(number);
}

int Template::dpi() const { return compiled_->dpi; }

const std::vector<std::string>& Template::fields() const { return compiled_->fields; }

const std::string& Template::fingerprint() const { return compiled_->fingerprint; }

}  // namespace orvante
