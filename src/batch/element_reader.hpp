#pragma once
// Reading a template's JSON objects key by key: each value of the type and
// range its key takes, or a TemplateError naming the element and the key.

#include <nlohmann/json.hpp>

#include <initializer_list>
#include <string>
#include <string_view>

#include <orvante/template.hpp>

#include "placeholders.hpp"

namespace orvante::templating {

// The label the elements must stay on, in dots.
struct LabelArea {
  int width = 0;
  int height = 0;
};

class ElementReader {
 public:
  // `index` is the element's place in "elements", or -1 for the template's
  // own keys; `what` names it in messages ("a text element").
  ElementReader(const nlohmann::json& object, int index, std::string what)
      : object_(object), index_(index), what_(std::move(what)) {}

  // Refuses a key that is neither required nor optional ("type" always
  // passes) and a required key that is missing.
  void keys(std::initializer_list<std::string_view> required,
            std::initializer_list<std::string_view> optional) const;

  bool has(std::string_view key) const { return object_.contains(key); }
  int integer(const std::string& key, int low, int high) const;
  int integer(const std::string& key, int low, int high, int fallback) const;
  double number(const std::string& key, double low, double high) const;
  std::string text(const std::string& key) const;
  std::string text(const std::string& key, const std::string& fallback) const;
  bool flag(const std::string& key, bool fallback) const;
  // Text with placeholders.
  PlaceholderText placeholders(const std::string& key) const;
  // A printer font or barcode name: letters, digits, '.', '_' and '-'.
  std::string name(const std::string& key) const;
  int rotation() const;

  // A point that must lie on the label: x, y in [0, width) x [0, height).
  void onLabel(const LabelArea& area, const std::string& xKey, const std::string& yKey) const;
  // A coordinate that may reach the label's edge but not pass it.
  int edge(const LabelArea& area, const std::string& key, bool across) const;
  // Something of width x height dots at the element's x, y that must end
  // on the label; `key` is named when it does not.
  void fits(const LabelArea& area, const std::string& key, int width, int height,
            const std::string& what) const;

  [[noreturn]] void fail(const std::string& key, const std::string& why) const {
    throw TemplateError(index_, key, why);
  }

 private:
  const nlohmann::json& value(const std::string& key) const;

  const nlohmann::json& object_;
  int index_;
  std::string what_;
};

}  // namespace orvante::templating
