#include "label_files.hpp"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace orvante::vprinter {

namespace {

// The number of a file named label-NNNN.png (any count of digits), or 0.
int labelNumber(const std::string& name) {
  constexpr std::string_view prefix = "label-";
  constexpr std::string_view suffix = ".png";
  if (name.size() <= prefix.size() + suffix.size() || !name.starts_with(prefix) ||
      !name.ends_with(suffix)) {
    return 0;
  }
  const std::string digits =
      name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
  if (digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos) return 0;
  return std::stoi(digits);
}

}  // namespace

LabelFiles::LabelFiles(std::filesystem::path folder) : folder_(std::move(folder)) {
  std::filesystem::create_directories(folder_);
  // Labels of an earlier run stay: this run numbers on after them.
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
    next_ = std::max(next_, labelNumber(entry.path().filename().string()) + 1);
  }
}

std::string LabelFiles::write(const PrintedLabel& label) {
  char name[32];
  std::snprintf(name, sizeof name, "label-%04d.png", next_++);
  const std::filesystem::path path = folder_ / name;
  label.writePng(path);
  return path.string();
}

}  // namespace orvante::vprinter
