// The orvante tool against the stand-in BlueZ, as a person runs it: the
// scan lists the printers it offers, and a paired printer answers by its
// bt:// address.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "bluez_rig.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

struct ToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

std::string slurp(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// Runs the tool on the rig's bus with the arguments (quoted for the shell).
ToolRun runTool(const BluezRig& bluez, const std::string& arguments) {
  const std::string base = ::testing::TempDir() + "orvante-bluez-cli-" + std::to_string(::getpid());
  const std::string command = "DBUS_SYSTEM_BUS_ADDRESS='" + bluez.bus.address() + "' " ORVANTE_CLI " " +
                              arguments + " >" + base + ".out 2>" + base + ".err </dev/null";
  ToolRun run;
  const int raw = std::system(command.c_str());
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = slurp(base + ".out");
  run.err = slurp(base + ".err");
  return run;
}

}  // namespace

TEST(BluezCli, ScanListsTheAdvertisingAndThePairedPrinters) {
  BluezRig bluez;
  bluez.bluez.addPrinter("00:11:62:00:00:01", "P1");
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:01", "Printer A");
  const ToolRun scan = runTool(bluez, "scan --seconds 1");
  EXPECT_EQ(scan.status, 0) << scan.err;
  EXPECT_EQ(scan.err, "");
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
