#pragma once
// A link to a BLE label printer's serial service: writes go to the write
// characteristic in acknowledged writes of the link's largest size, one at
// a time; the receive characteristic's notifications are the input.

#include <memory>
#include <string>

#include <orvante/platform/ble.hpp>

#include "link.hpp"

namespace orvante::transport {

// The printer whose address (its identifier, for BlueZ) is `address`,
// compared without regard to case. Starting the link makes a central of
// the radio, scans until that printer is heard, connects, finds the serial
// service and turns its notifications on; the scan goes on until the link
// is closed (the caller's deadline ends it).
std::shared_ptr<Link> bleLink(std::shared_ptr<ble::CentralFactory> radio, std::string address);

}  // namespace orvante::transport
