#include "system_setup.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "driver.hpp"
#include "job_callbacks.hpp"
#include "printer_device.hpp"
#include "image_filter.hpp"
#include "pdf_filter.hpp"
#include "printer_settings.hpp"

namespace orvante::app {

namespace {

constexpr const char* kName = "orvante-printer-app";

std::string stateFile(int numOptions, cups_option_t* options) {
  if (const char* file = cupsGetOption("state-file", numOptions, options)) return file;
  std::filesystem::path folder;
  if (const char* config = std::getenv("XDG_CONFIG_HOME")) {
    folder = config;
  } else if (const char* home = std::getenv("HOME")) {
    folder = std::filesystem::path(home) / ".config";
  } else {
    folder = "/tmp";
  }
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  return (folder / (std::string(kName) + ".state")).string();
}

pappl_loglevel_t logLevel(const char* name) {
  if (name == nullptr) return PAPPL_LOGLEVEL_WARN;
  if (std::strcmp(name, "debug") == 0) return PAPPL_LOGLEVEL_DEBUG;
  if (std::strcmp(name, "info") == 0) return PAPPL_LOGLEVEL_INFO;
  if (std::strcmp(name, "error") == 0) return PAPPL_LOGLEVEL_ERROR;
  if (std::strcmp(name, "fatal") == 0) return PAPPL_LOGLEVEL_FATAL;
  return PAPPL_LOGLEVEL_WARN;
}

// The state file's name lives as long as the system that saves to it.
std::string savedStateFile;

std::string settingsFile() { return savedStateFile + ".settings"; }

bool saveState(pappl_system_t* system, void* /*context*/) {
  saveSettings(system, settingsFile());
  return papplSystemSaveState(system, savedStateFile.c_str());
}

}  // namespace

pappl_system_t* createSystem(int numOptions, cups_option_t* options, void* /*context*/) {
  const char* port = cupsGetOption("server-port", numOptions, options);
  const char* spool = cupsGetOption("spool-directory", numOptions, options);
  const char* logFile = cupsGetOption("log-file", numOptions, options);
  const char* listen = cupsGetOption("listen-hostname", numOptions, options);

  pappl_system_t* system = papplSystemCreate(
      PAPPL_SOPTIONS_MULTI_QUEUE | PAPPL_SOPTIONS_WEB_INTERFACE | PAPPL_SOPTIONS_WEB_LOG |
          PAPPL_SOPTIONS_WEB_SECURITY | PAPPL_SOPTIONS_NO_TLS,
      "Orvante Printer App", port ? std::atoi(port) : 0, "_print,_universal", spool,
      logFile ? logFile : "-", logLevel(cupsGetOption("log-level", numOptions, options)),
      cupsGetOption("auth-service", numOptions, options), false);
  if (system == nullptr) return nullptr;

  // Without listen-hostname it listens on every address, for printing from
  // other computers.
  papplSystemAddListeners(system, listen);
  usePrinterDevices();
  papplSystemSetPrinterDrivers(system, driverCount(), drivers(), nullptr, nullptr, driverCallback,
                               nullptr);
  papplSystemAddMIMEFilter(system, "application/pdf", kLabelFormat, printPdf, nullptr);
  papplSystemAddMIMEFilter(system, "image/png", kLabelFormat, printImage, nullptr);
  papplSystemAddMIMEFilter(system, "image/jpeg", kLabelFormat, printImage, nullptr);
  papplSystemSetFooterHTML(system, "Orvante label printers");

  savedStateFile = stateFile(numOptions, options);
  papplSystemLoadState(system, savedStateFile.c_str());
  loadSettings(system, settingsFile());
  papplSystemSetSaveCallback(system, saveState, nullptr);
  return system;
}

}  // namespace orvante::app
