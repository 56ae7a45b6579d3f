// orvante-printer-app: an IPP printer application for label printers of the
// label command language. papplMainloop gives the sub-commands (server,
// add, status, submit, drivers, devices, shutdown...).

#include <pappl/pappl.h>

#include "driver.hpp"
#include "system_setup.hpp"

int main(int argc, char* argv[]) {
  return papplMainloop(argc, argv, "1.0.0", "Orvante label printers",
                       orvante::app::driverCount(), orvante::app::drivers(), nullptr,
                       orvante::app::driverCallback, nullptr, nullptr, orvante::app::createSystem,
                       nullptr, nullptr);
}
