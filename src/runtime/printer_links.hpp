#pragma once
// The printer addresses the second door opens, one scheme each:
//   tcp://host[:port]                  a network printer (port 9100 unless told)
//   serial:///dev/ttyUSB0?baud=115200  a serial printer (9600 baud unless told)
//   usb:///dev/usb/lp0                 a USB printer through the kernel's driver
//   bt://AA:BB:CC:DD:EE:FF             a printer paired over the Bluetooth serial profile
//   ble://ADDRESS                      a BLE printer, by the address BlueZ reports
//   sim://NAME                         a simulated printer of orvante::testing

#include <memory>
#include <string_view>

#include "../transport/link.hpp"
#include "system_services.hpp"

namespace orvante::runtime {

// The printer's link, not yet started, through the given services (the
// system's unless told). Throws orvante::Error naming what is wrong with
// the address, or why its device cannot be opened (no such device,
// permission denied, not paired).
std::shared_ptr<transport::Link> linkTo(std::string_view uri,
                                        const SystemServices& services = systemServices());

}  // namespace orvante::runtime
