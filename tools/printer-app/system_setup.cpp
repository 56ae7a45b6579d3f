#include "system_setup.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "driver.hpp"
#include "image_filter.hpp"
#include "job_callbacks.hpp"
#include "pdf_filter.hpp"
#include "printer_device.hpp"
#include "printer_settings.hpp"

namespace orvante::app {

namespace {

constexpr const char* kName = "orvante-printer-app";

// The state file the command line named, if any.
std::string namedStateFile;

std::string stateFile() {
  if (!namedStateFile.empty()) return namedStateFile;
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

std::string settingsFile() {
  return savedStateFile + ".settings";
}

bool saveState(pappl_system_t* system, void* /*context*/) {
  saveSettings(system, settingsFile());
  return papplSystemSaveState(system, savedStateFile.c_str());
}

// A short name of its own for a state file: its absolute path hashed
// (FNV-1a), in hexadecimal.
std::string instanceTag(const std::string& file) {
  std::error_code ignored;
  const std::string path = std::filesystem::absolute(file, ignored).lexically_normal().string();
  std::uint64_t hash = 0xcbf29ce484222325ull;
  for (const unsigned char c : path) {
    hash ^= c;
    hash *= 0x100000001b3ull;
  }
  char tag[17];
  std::snprintf(tag, sizeof tag, "%016llx", static_cast<unsigned long long>(hash));
  return std::string(tag, 8);
}

}  // namespace

std::vector<std::string> instanceArguments(std::vector<std::string> arguments) {
  constexpr std::string_view kOption = "state-file=";
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    std::string_view value = arguments[i];
    std::size_t taken = 1;
    if (value == "-o" && i + 1 < arguments.size()) {
      value = arguments[i + 1];
      taken = 2;
    } else if (value.starts_with("-o")) {
      value.remove_prefix(2);
    } else {
      continue;
    }
    if (!value.starts_with(kOption)) continue;
    namedStateFile = std::string(value.substr(kOption.size()));
    arguments.erase(arguments.begin() + static_cast<std::ptrdiff_t>(i),
                    arguments.begin() + static_cast<std::ptrdiff_t>(i + taken));
    --i;
  }
  if (!namedStateFile.empty() && !arguments.empty()) {
    // PAPPL names the control socket after the program's file name.
    arguments[0] = (std::filesystem::path(arguments[0]).parent_path() /
                    (std::string(kName) + "-" + instanceTag(namedStateFile)))
                       .string();
  }
  return arguments;
}

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
  papplSystemSetPrinterDrivers(system, driverCount(), drivers(), nullptr, nullptr, driverCallback,
                               nullptr);
  papplSystemAddMIMEFilter(system, "application/pdf", kLabelFormat, printPdf, nullptr);
  papplSystemAddMIMEFilter(system, "image/png", kLabelFormat, printImage, nullptr);
  papplSystemAddMIMEFilter(system, "image/jpeg", kLabelFormat, printImage, nullptr);
  papplSystemSetFooterHTML(system, "Orvante label printers");

  savedStateFile = stateFile();
  papplSystemLoadState(system, savedStateFile.c_str());
  loadSettings(system, settingsFile());
  papplSystemSetSaveCallback(system, saveState, nullptr);
  return system;
}

}  // namespace orvante::app
