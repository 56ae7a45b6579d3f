#pragma once
// The serial devices the application added as printers
// (orvante::addSerialPrinter), and opening a tty raw as a stream pair.

#include <memory>
#include <string>
#include <vector>

#include <orvante/platform/accessory.hpp>
#include <orvante/platform/serial_printers.hpp>

namespace orvante::platform::linux_devices {

// The added devices as accessories, in the order they were added.
std::vector<std::shared_ptr<Accessory>> listSerialPrinters();

// The tty's stream pair, its line set raw. Throws std::runtime_error with
// the reason (no such device, permission denied, not a tty, a bad baud).
// The tty open, its line set raw; the same failures.
int openSerialDescriptor(const std::string& path, int baud, FlowControl flow = FlowControl::None);
StreamPair openSerialDevice(const std::string& path, int baud,
                            FlowControl flow = FlowControl::None);

}  // namespace orvante::platform::linux_devices
