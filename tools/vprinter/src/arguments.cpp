#include "arguments.hpp"

#include <cmath>
#include <cstdlib>

#include "render_error.hpp"

namespace orvante::vprinter {

namespace {

// The number at the start of `text`, and where it stops.
bool leadingNumber(const std::string& text, double& value, std::size_t& end) {
  const char* start = text.c_str();
  char* stop = nullptr;
  value = std::strtod(start, &stop);
  end = static_cast<std::size_t>(stop - start);
  return end > 0 && std::isfinite(value) && text.find_first_of("xXnN") >= end;
}

}  // namespace

const Argument& Arguments::field(std::size_t index, const char* name) const {
  if (!has(index)) throw CommandWarning(std::string("missing ") + name);
  return command_.arguments[index];
}

double Arguments::number(std::size_t index, const char* name) const {
  const std::string& text = field(index, name).text;
  double value = 0;
  std::size_t end = 0;
  if (!leadingNumber(text, value, end) || !trimmed(std::string_view(text).substr(end)).empty()) {
    throw CommandWarning(std::string(name) + " is not a number: \"" + text + "\"");
  }
  return value;
}

int Arguments::integer(std::size_t index, const char* name, int low, int high) const {
  const double value = std::round(number(index, name));
  if (value < low || value > high) {
    throw CommandWarning(std::string(name) + " must be " + std::to_string(low) + " to " +
                         std::to_string(high));
  }
  return static_cast<int>(value);
}

int Arguments::integerOr(std::size_t index, const char* name, int low, int high,
                         int fallback) const {
  if (!has(index) || command_.arguments[index].text.empty()) return fallback;
  return integer(index, name, low, high);
}

int Arguments::length(std::size_t index, const char* name) const {
  const std::string& text = field(index, name).text;
  double value = 0;
  std::size_t end = 0;
  if (!leadingNumber(text, value, end) || value < 0 || value > 100000) {
    throw CommandWarning(std::string(name) + " is not a length: \"" + text + "\"");
  }
  const std::string unit = upperCase(trimmed(std::string_view(text).substr(end)));
  double dots = 0;
  if (unit == "MM") {
    dots = value * static_cast<double>(std::lround(dpi_ / 25.4));  // 8 or 12 dots a mm
  } else if (unit == "DOT" || unit == "DOTS") {
    dots = value;
  } else if (unit.empty() || unit == "IN" || unit == "INCH") {
    dots = value * dpi_;
  } else {
    throw CommandWarning(std::string(name) + " has an unknown unit: \"" + text + "\"");
  }
  return static_cast<int>(std::lround(dots));
}

const std::string& Arguments::text(std::size_t index, const char* name) const {
  return field(index, name).text;
}

}  // namespace orvante::vprinter
