#pragma once
// The printer settings PAPPL's state file leaves out: the configured
// darkness, the default print darkness and the default speed. They are kept
// in a file next to the state file and put back after the state is loaded,
// every value included (a darkness of 0 is a setting, not a missing one).

#include <string>

#include <pappl/pappl.h>

namespace orvante::app {

void saveSettings(pappl_system_t* system, const std::string& file);
void loadSettings(pappl_system_t* system, const std::string& file);

}  // namespace orvante::app
