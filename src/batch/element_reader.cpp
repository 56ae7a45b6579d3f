#include "element_reader.hpp"

#include <cmath>

#include "../commands/fields.hpp"

namespace orvante::templating {
namespace {

std::string listed(std::initializer_list<std::string_view> required,
                   std::initializer_list<std::string_view> optional) {
  std::string text;
  for (auto list : {required, optional}) {
    for (std::string_view key : list) text += (text.empty() ? "" : ", ") + std::string(key);
  }
  return text;
}

bool among(std::initializer_list<std::string_view> keys, std::string_view key) {
  for (std::string_view candidate : keys) {
    if (candidate == key) return true;
  }
  return false;
}

std::string shown(const nlohmann::json& value) {
  std::string text = value.dump();
  return text.size() > 40 ? text.substr(0, 37) + "..." : text;
}

}  // namespace

void ElementReader::keys(std::initializer_list<std::string_view> required,
                         std::initializer_list<std::string_view> optional) const {
  for (const auto& [key, value] : object_.items()) {
    if (key == "type" && index_ >= 0) continue;
    if (!among(required, key) && !among(optional, key)) {
      fail(key, "unknown key; " + what_ + " takes " + listed(required, optional));
    }
  }
  for (std::string_view key : required) {
    if (!object_.contains(key)) {
      fail(std::string(key), "missing; " + what_ + " needs " + listed(required, {}));
    }
  }
}

const nlohmann::json& ElementReader::value(const std::string& key) const {
  const auto found = object_.find(key);
  if (found == object_.end()) fail(key, "missing");
  return *found;
}

int ElementReader::integer(const std::string& key, int low, int high) const {
  const nlohmann::json& given = value(key);
  if (!given.is_number_integer()) fail(key, "must be a whole number, not " + shown(given));
  const auto number = given.get<long long>();
  if (number < low || number > high) {
    fail(key, "must be " + std::to_string(low) + " to " + std::to_string(high) + ", not " +
                  std::to_string(number));
  }
  return static_cast<int>(number);
}

int ElementReader::integer(const std::string& key, int low, int high, int fallback) const {
  return has(key) ? integer(key, low, high) : fallback;
}

double ElementReader::number(const std::string& key, double low, double high) const {
  const nlohmann::json& given = value(key);
  if (!given.is_number()) fail(key, "must be a number, not " + shown(given));
  const double number = given.get<double>();
  if (!(number >= low && number <= high)) {
    fail(key, "must be " + nlohmann::json(low).dump() + " to " + nlohmann::json(high).dump() +
                  ", not " + shown(given));
  }
  return number;
}

std::string ElementReader::text(const std::string& key) const {
  const nlohmann::json& given = value(key);
  if (!given.is_string()) fail(key, "must be text in quotes, not " + shown(given));
  return given.get<std::string>();
}

std::string ElementReader::text(const std::string& key, const std::string& fallback) const {
  return has(key) ? text(key) : fallback;
}

bool ElementReader::flag(const std::string& key, bool fallback) const {
  if (!has(key)) return fallback;
  const nlohmann::json& given = value(key);
  if (!given.is_boolean()) fail(key, "must be true or false, not " + shown(given));
  return given.get<bool>();
}

PlaceholderText ElementReader::placeholders(const std::string& key) const {
  try {
    return PlaceholderText::parse(text(key));
  } catch (const TemplateError&) {
    throw;
  } catch (const std::invalid_argument& bad) {
    fail(key, bad.what());
  }
}

std::string ElementReader::name(const std::string& key) const {
  std::string given = text(key);
  try {
    fields::requireName("the name", given);
  } catch (const std::invalid_argument& bad) {
    fail(key, bad.what());
  }
  return given;
}

int ElementReader::rotation() const {
  const int degrees = integer("rotation", 0, 270, 0);
  if (degrees % 90 != 0) fail("rotation", "must be 0, 90, 180 or 270, not " + std::to_string(degrees));
  return degrees;
}

namespace {

std::string sizeOf(const LabelArea& area) {
  return std::to_string(area.width) + " x " + std::to_string(area.height) + " dots";
}

}  // namespace

void ElementReader::onLabel(const LabelArea& area, const std::string& xKey,
                            const std::string& yKey) const {
  for (const auto& [key, limit] : {std::pair{xKey, area.width}, std::pair{yKey, area.height}}) {
    const int at = integer(key, 0, 0xFFFF);
    if (at >= limit) fail(key, std::to_string(at) + " is outside the label of " + sizeOf(area));
  }
}

int ElementReader::edge(const LabelArea& area, const std::string& key, bool across) const {
  const int at = integer(key, 0, 0xFFFF);
  if (at > (across ? area.width : area.height)) {
    fail(key, std::to_string(at) + " is outside the label of " + sizeOf(area));
  }
  return at;
}

void ElementReader::fits(const LabelArea& area, const std::string& key, int width, int height,
                         const std::string& what) const {
  const int x = integer("x", 0, 0xFFFF), y = integer("y", 0, 0xFFFF);
  if (x + width > area.width || y + height > area.height) {
    fail(key, what + " of " + std::to_string(width) + " x " + std::to_string(height) +
                  " dots at " + std::to_string(x) + "," + std::to_string(y) +
                  " reaches past the label of " + sizeOf(area));
  }
}

}  // namespace orvante::templating
