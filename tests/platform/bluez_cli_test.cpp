// The orvante tool against the stand-in BlueZ, as a person runs it: the
// scan lists the printers it offers, and a paired printer answers by its
// bt:// address.

#include <gtest/gtest.h>

#include "bluez_rig.hpp"
#include "tool_run.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

// Runs the tool on the rig's bus with the arguments (quoted for the shell).
ToolRun runTool(const BluezRig& bluez, const std::string& arguments) {
  return orvante::testing::runTool(arguments,
                                   "DBUS_SYSTEM_BUS_ADDRESS='" + bluez.bus.address() + "'");
}

}  // namespace

TEST(BluezCli, ScanListsTheAdvertisingAndThePairedPrinters) {
  BluezRig bluez;
  bluez.bluez.addPrinter("00:11:62:00:00:01", "P1");
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:01", "Printer A");
  const ToolRun scan = runTool(bluez, "scan --seconds 1");
  EXPECT_EQ(scan.status, 0) << scan.err;
  // The stand-in's bus has no Avahi: said, and the rest listed all the same.
  EXPECT_EQ(scan.err, "orvante: no network printers searched: Daemon not running\n");
  EXPECT_TRUE(scan.out.starts_with("ble://")) << scan.out;
  EXPECT_NE(scan.out.find("ble://00:11:62:00:00:01 P1\n"), std::string::npos) << scan.out;
  EXPECT_NE(scan.out.find("bt://00:11:62:AA:BB:01 Printer A\n"), std::string::npos) << scan.out;
}

TEST(BluezCli, APairedPrinterAnswersByItsBluetoothAddress) {
  BluezRig bluez;
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:01", "Printer A");
  bluez.bluez.setSerialResponder(answering({{"~!T", "OV-203\r"}}));
  const ToolRun name = runTool(bluez, "--printer bt://00:11:62:AA:BB:01 query name");
  EXPECT_EQ(name.status, 0) << name.err;
  EXPECT_EQ(name.out, "OV-203\n");

  const ToolRun unpaired = runTool(bluez, "--printer bt://00:11:62:AA:BB:09 query name");
  EXPECT_EQ(unpaired.status, 1);
  EXPECT_EQ(unpaired.err,
            "orvante: no printer with the Bluetooth address 00:11:62:AA:BB:09 is paired "
            "(or Bluetooth is not available)\n");
}
