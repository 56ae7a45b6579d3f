// orvante-printer-app: an IPP printer application for label printers of the
// label command language. papplMainloop gives the sub-commands (server,
// add, status, submit, drivers, devices, shutdown...).

#include <pappl/pappl.h>

#include <string>
#include <vector>

#include "driver.hpp"
#include "printer_device.hpp"
#include "system_setup.hpp"

int main(int argc, char* argv[]) {
  // The sub-commands that list devices run in this process, not the server.
  orvante::app::usePrinterDevices();
  std::vector<std::string> arguments =
      orvante::app::instanceArguments(std::vector<std::string>(argv, argv + argc));
  std::vector<char*> pointers;
  for (auto& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  return papplMainloop(static_cast<int>(arguments.size()), pointers.data(), "1.0.0",
                       "Orvante label printers", orvante::app::driverCount(),
                       orvante::app::drivers(), nullptr, orvante::app::driverCallback, nullptr,
                       nullptr, orvante::app::createSystem, nullptr, nullptr);
}
