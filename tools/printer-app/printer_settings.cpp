#include "printer_settings.hpp"

#include <cstdio>
#include <fstream>
#include <sstream>

#include "driver.hpp"

namespace orvante::app {

namespace {

void writePrinter(pappl_printer_t* printer, void* context) {
  pappl_pr_driver_data_t data;
  papplPrinterGetDriverData(printer, &data);
  *static_cast<std::ofstream*>(context)
      << papplPrinterGetID(printer) << ' ' << data.darkness_configured << ' '
      << data.darkness_default << ' ' << data.speed_default << '\n';
}

// The printer's current dithering default, which setting driver defaults
// would otherwise drop.
std::string ditherDefault(pappl_printer_t* printer) {
  std::string value = "threshold";
  ipp_t* attributes = papplPrinterGetDriverAttributes(printer);
  const std::string name = std::string(kDitherOption) + "-default";
  if (ipp_attribute_t* found = ippFindAttribute(attributes, name.c_str(), IPP_TAG_KEYWORD)) {
    value = ippGetString(found, 0, nullptr);
  }
  ippDelete(attributes);
  return value;
}

}  // namespace

void saveSettings(pappl_system_t* system, const std::string& file) {
  const std::string temporary = file + ".new";
  {
    std::ofstream out(temporary);
    papplSystemIteratePrinters(system, writePrinter, &out);
    if (!out) return;
  }
  std::rename(temporary.c_str(), file.c_str());
}

void loadSettings(pappl_system_t* system, const std::string& file) {
  std::ifstream in(file);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    int id = 0, configured = 0, darkness = 0, speed = 0;
    if (!(fields >> id >> configured >> darkness >> speed)) continue;
    pappl_printer_t* printer = papplSystemFindPrinter(system, nullptr, id, nullptr);
    if (printer == nullptr) continue;
    pappl_pr_driver_data_t data;
    papplPrinterGetDriverData(printer, &data);
    data.darkness_configured = configured;
    data.darkness_default = darkness;
    data.speed_default = speed;
    std::string dither = ditherDefault(printer);
    cups_option_t vendor{const_cast<char*>(kDitherOption), dither.data()};
    papplPrinterSetDriverDefaults(printer, &data, 1, &vendor);
  }
}

}  // namespace orvante::app
