#pragma once
// Printed labels as PNG files label-0001.png, label-0002.png... in one
// folder, numbered across the run, after any an earlier run left there.

#include <filesystem>
#include <string>

#include <orvante/vprinter/printed_label.hpp>

namespace orvante::vprinter {

class LabelFiles {
 public:
  // Creates the folder if it is missing.
  explicit LabelFiles(std::filesystem::path folder);
  // Writes the label and returns its path.
  std::string write(const PrintedLabel& label);

 private:
  std::filesystem::path folder_;
  int next_ = 1;
};

}  // namespace orvante::vprinter
