#pragma once
// The stream pairs of printers on devices: a serial tty, a USB printer
// device, a printer paired over the Bluetooth serial profile.

#include <orvante/platform/accessory.hpp>

#include "printer_uri.hpp"

namespace orvante::direct {

// The device's stream pair, not yet open; a "bt" printer is the accessory
// of `accessories` whose "macAddress" is the address. Throws orvante::Error
// with the reason: no such device, permission denied, not paired, refused.
StreamPair openDeviceStreams(const DeviceAddress& address, AccessoryManager& accessories);
// The same over the system's accessories.
StreamPair openDeviceStreams(const DeviceAddress& address);

// How messages name the printer: its device file or Bluetooth address.
std::string describeDevice(const DeviceAddress& address);

}  // namespace orvante::direct
