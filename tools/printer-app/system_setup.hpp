#pragma once
// The printer application's system: where it listens, where it keeps its
// state and spool files, its drivers and the PDF filter.

#include <pappl/pappl.h>

namespace orvante::app {

// papplMainloop's system callback. Takes the "server" options
// listen-hostname, server-port, spool-directory, log-file, log-level and
// state-file (default $XDG_CONFIG_HOME or ~/.config/orvante-printer-app.state).
pappl_system_t* createSystem(int numOptions, cups_option_t* options, void* context);

}  // namespace orvante::app
