#pragma once
// A smart battery that drains as labels print, for the printer's
// DIAGNOSTIC REPORT SMB... answers.

#include <optional>
#include <string>

namespace orvante::vprinter {

class Battery {
 public:
  // The value of a report field (SMBVOLTAGE, SMBLIFE...); none for fields
  // the battery does not know.
  std::optional<std::string> report(const std::string& field) const;
  void labelPrinted() { ++labels_; }

 private:
  long labels_ = 0;
};

}  // namespace orvante::vprinter
