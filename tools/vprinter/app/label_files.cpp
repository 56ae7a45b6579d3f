#include "label_files.hpp"

#include <cstdio>

namespace orvante::vprinter {

LabelFiles::LabelFiles(std::filesystem::path folder) : folder_(std::move(folder)) {
  std::filesystem::create_directories(folder_);
}

std::string LabelFiles::write(const PrintedLabel& label) {
  char name[32];
  std::snprintf(name, sizeof name, "label-%04d.png", next_++);
  const std::filesystem::path path = folder_ / name;
  label.writePng(path);
  return path.string();
}

}  // namespace orvante::vprinter
