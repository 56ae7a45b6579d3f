// The printers `orvante scan` lists, found through the stand-in BlueZ and a
// directory standing in for /dev/usb, and bt:// addresses opened through
// the paired serial-profile printers.

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "bluez_rig.hpp"
#include "platform/linux/system_accessories.hpp"
#include "pty_printer.hpp"
#include "runtime/discovery.hpp"
#include "runtime/printer_links.hpp"

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

// A directory standing in for /dev/usb, with a pseudo-terminal as lp0.
struct UsbDirectoryWithLp0 {
  UsbDirectoryWithLp0() {
    fs::remove_all(path);
    fs::create_directories(path);
    fs::create_symlink(printer.path(), path / "lp0");
  }
  ~UsbDirectoryWithLp0() { fs::remove_all(path); }
  PtyPrinter printer;
  const fs::path path = fs::temp_directory_path() / ("orvante-scan-" + std::to_string(::getpid()));
};

std::string printed(const std::vector<FoundPrinter>& printers) {
  std::string out;
  for (const auto& printer : printers) {
    out += printer.address + (printer.name.empty() ? "" : " " + printer.name) + "\n";
  }
  return out;
}

}  // namespace

TEST(Discovery, ListsAdvertisingPrintersThenPairedOnesThenUsbOnes) {
  BluezRig bluez;
  bluez.bluez.addPrinter("00:11:62:00:00:01", "P1");
  bluez.bluez.addPrinter("00:11:62:00:00:02", std::nullopt);
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:01", "Printer A");
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:02", "Never paired", false);
  UsbDirectoryWithLp0 usb;
  Platform platform = bluez.platform();
  platform.accessories =
      std::make_shared<platform::linux_devices::SystemAccessories>(bluez.accessories, usb.path);

  std::vector<std::string> notes;
  const std::string found = printed(runtime::discover(platform, 500ms, &notes));
  // No Avahi on the test's bus: said, and the rest listed all the same.
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_EQ(notes[0].rfind("no network printers searched", 0), 0u) << notes[0];
  const auto bleAt = found.find("ble://00:11:62:00:00:01 P1\n");
  EXPECT_NE(bleAt, std::string::npos) << found;
  EXPECT_NE(found.find("ble://00:11:62:00:00:02\n"), std::string::npos) << found;
  const auto pairedAt = found.find("bt://00:11:62:AA:BB:01 Printer A\nusb://" +
                                   (usb.path / "lp0").string() + " lp0\n");
  EXPECT_NE(pairedAt, std::string::npos) << found;
  EXPECT_LT(bleAt, pairedAt);
  EXPECT_EQ(found.find("bt://00:11:62:AA:BB:02"), std::string::npos) << found;
}

TEST(Discovery, WithoutBluetoothItSaysSoAndStillListsUsbPrinters) {
  SystemBusAt nowhere("unix:path=/nonexistent/orvante-bus");
  UsbDirectoryWithLp0 usb;
  Platform platform;
  platform.accessories = std::make_shared<platform::linux_devices::SystemAccessories>(
      std::make_shared<platform::bluez::SerialAccessories>(), usb.path);
  platform.ble = std::make_shared<platform::bluez::BluezCentralFactory>();
  std::vector<std::string> notes;
  EXPECT_EQ(printed(runtime::discover(platform, 500ms, &notes)),
            "usb://" + (usb.path / "lp0").string() + " lp0\n");
  EXPECT_EQ(notes.front(), "no Bluetooth adapter (or no system bus): no BLE printers scanned");
}

TEST(BluetoothAddress, APairedPrinterIsOpenedByItsAddressAndOthersSayWhy) {
  BluezRig bluez(0.5);
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:01", "Printer A");
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:02", "Never paired", false);
  bluez.bluez.setSerialResponder(answering({{"~!T", "OV-203\r"}}));

  const runtime::SystemServices services{bluez.platform(), bluez.accessories};
  auto link = runtime::linkTo("bt://00:11:62:aa:bb:01", services);
  const auto soon = [] { return std::chrono::steady_clock::now() + 5s; };
  ASSERT_EQ(link->open(soon()), transport::Wait::Done);
  std::size_t sent = 0;
  ASSERT_EQ(link->writeAll(bytesOf("~!T"), 5s, nullptr, sent), transport::Wait::Done);
  std::string reply;
  while (reply.size() < 7) {
    std::uint8_t block[16];
    std::size_t got = 0;
    ASSERT_EQ(link->read(block, soon(), got), transport::Wait::Done);
    reply += textOf(ByteView(block, got));
  }
  EXPECT_EQ(reply, "OV-203\r");
  link->close();

  const auto failure = [&](const std::string& address) -> std::string {
    try {
      runtime::linkTo("bt://" + address, services);
    } catch (const Error& error) {
      return error.what();
    }
    return "no error";
  };
  EXPECT_EQ(failure("00:11:62:AA:BB:02"),
            "no printer with the Bluetooth address 00:11:62:AA:BB:02 is paired "
            "(or Bluetooth is not available)");
  bluez.bluez.failMethod("/org/bluez/hci0/dev_00_11_62_AA_BB_01", "ConnectProfile",
                         "org.bluez.Error.Failed");
  EXPECT_EQ(failure("00:11:62:AA:BB:01"),
            "cannot connect to 00:11:62:AA:BB:01: its serial port connection was refused or not "
            "made in time");
}
