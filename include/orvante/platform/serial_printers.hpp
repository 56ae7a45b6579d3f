#pragma once
// Printers on serial devices (a USB serial adapter, a built-in port) that
// the application names: once added, each is listed among the system's
// accessories offering "com.issc.datapath", after the Bluetooth and USB
// printers, and opened like them (ORVANTESDK::openportMFI). Opening sets
// the tty raw: the given baud, 8 data bits, no parity, one stop bit, and
// the flow control asked for.
//
//   orvante::addSerialPrinter("/dev/ttyUSB0", 115200);
//   ORVANTESDK printer;
//   printer.openportMFI("com.issc.datapath");

#include <string>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

enum class FlowControl {
  None,      // no flow control
  Hardware,  // RTS/CTS lines
  Software,  // XON/XOFF characters
};

// Adds the device, or changes its settings when it is already added.
// Throws std::invalid_argument for a baud the system's ttys do not have.
void addSerialPrinter(std::string path, int baud = 9600, FlowControl flow = FlowControl::None);
// False when the device was not added.
bool removeSerialPrinter(const std::string& path);

}  // namespace orvante

ORVANTE_API_END
