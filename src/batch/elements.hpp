#pragma once
// A template's elements read from their JSON objects: each checked whole,
// and turned into the text it takes from a record and how it draws.

#include <nlohmann/json.hpp>

#include <filesystem>
#include <functional>
#include <string>

#include <orvante/label.hpp>

#include "element_reader.hpp"
#include "placeholders.hpp"

namespace orvante::templating {

struct ElementContext {
  int dpi = 203;
  LabelArea area;
  std::filesystem::path folder;  // where relative image paths start
};

struct Element {
  int index = 0;
  std::string key;        // the key of its text ("text", "code", "data"); empty for none
  PlaceholderText text;   // constant for elements without text
  // Adds the element, with its text filled, to a label; std::invalid_argument
  // when the label refuses the text.
  std::function<void(Label&, const std::string&)> draw;
  // Whether only drawing it tells if it fits (text in an installed font);
  // the others were checked against the label when they were read.
  bool sizedWhenDrawn = false;
};

// Throws TemplateError naming the element and the key.
Element readElement(const nlohmann::json& object, int index, const ElementContext& context);

}  // namespace orvante::templating
