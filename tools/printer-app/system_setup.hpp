#pragma once
// The printer application's system: where it listens, where it keeps its
// state and spool files, its drivers and the PDF filter.

#include <pappl/pappl.h>

#include <string>
#include <vector>

namespace orvante::app {

// The command line as papplMainloop gets it: a "-o state-file=FILE" is
// taken out (every sub-command accepts it) and names this application's
// instance, whose program name, and so its control socket, is made its own:
// two applications with different state files never answer each other's
// sub-commands. The file is kept for createSystem.
std::vector<std::string> instanceArguments(std::vector<std::string> arguments);

// papplMainloop's system callback. Takes the "server" options
// listen-hostname, server-port, spool-directory, log-file, log-level and
// state-file (default $XDG_CONFIG_HOME or ~/.config/orvante-printer-app.state).
pappl_system_t* createSystem(int numOptions, cups_option_t* options, void* context);

}  // namespace orvante::app
