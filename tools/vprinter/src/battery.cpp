#include "battery.hpp"

#include <algorithm>

namespace orvante::vprinter {

namespace {

constexpr int kFullCapacityMah = 2600;
constexpr double kMahPerLabel = 0.25;
constexpr int kFullVoltageMv = 8200;
constexpr int kEmptyVoltageMv = 6800;

}  // namespace

std::optional<std::string> Battery::report(const std::string& field) const {
  const double remaining = std::max(0.0, kFullCapacityMah - labels_ * kMahPerLabel);
  const double charge = remaining / kFullCapacityMah;
  if (field == "SMBSERIAL") return "VB2311-04172";
  if (field == "SMBVOLTAGE") {
    return std::to_string(static_cast<int>(kEmptyVoltageMv + charge * (kFullVoltageMv - kEmptyVoltageMv)));
  }
  if (field == "SMBREMCAPCITY") return std::to_string(static_cast<int>(remaining));
  if (field == "SMBTEMPERATURE") return "25";
  if (field == "SMBDISCYCLE") return "37";
  if (field == "SMBMANUDATE") return "2023-11-06";
  if (field == "SMBREPLACECOUNT") return "0";
  if (field == "SMBLIFE") return std::to_string(static_cast<int>(charge * 100));
  if (field == "SMBSOH") return "96";
  return std::nullopt;
}

}  // namespace orvante::vprinter
