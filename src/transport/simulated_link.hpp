#pragma once
// Links to printers simulated in this process (sim://NAME): bytes written
// go to the simulated end on the event loop, its answers come back as input.

#include <memory>
#include <string>

#include "link.hpp"

namespace orvante::transport {

// Null when no end is attached under that name.
std::shared_ptr<Link> simulatedLink(const std::string& name);

}  // namespace orvante::transport
