// The printers `orvante scan` lists, found through the stand-in BlueZ and a
// directory standing in for /dev/usb, and bt:// addresses opened through
// the paired serial-profile printers.

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "bluez_rig.hpp"
#include "platform/linux/system_accessories.hpp"
#include "printer/device_links.hpp"
#include "printer_scan.hpp"
#include "pty_printer.hpp"

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

std::string printed(const std::vector<cli::FoundPrinter>& printers) {
  std::ostringstream out;
  cli::printFound(printers, out);
  return out.str();
}

}  // namespace

TEST(PrinterScan, ListsAdvertisingPrintersThenPairedOnesThenUsbOnes) {
  BluezRig bluez;
  bluez.bluez.addPrinter("00:11:62:00:00:01", "P1");
  bluez.bluez.addPrinter("00:11:62:00:00:02", std::nullopt);
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:01", "Printer A");
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:02", "Never paired", false);
  UsbDirectoryWithLp0 usb;
  platform::linux_devices::SystemAccessories accessories(bluez.accessories, usb.path);

  std::ostringstream notes;
  const auto seen = cli::scanBlePrinters(*bluez.radio, 500ms, notes);
  EXPECT_EQ(notes.str(), "");
  const std::string advertised = printed(seen);
  EXPECT_NE(advertised.find("ble://00:11:62:00:00:01 P1\n"), std::string::npos) << advertised;
  EXPECT_NE(advertised.find("ble://00:11:62:00:00:02\n"), std::string::npos) << advertised;

  EXPECT_EQ(printed(cli::accessoryPrinters(accessories)),
            "bt://00:11:62:AA:BB:01 Printer A\nusb://" + (usb.path / "lp0").string() + " lp0\n");
}

TEST(PrinterScan, WithoutBluetoothItSaysSoAndStillListsUsbPrinters) {
  SystemBusAt nowhere("unix:path=/nonexistent/orvante-bus");
  UsbDirectoryWithLp0 usb;
  platform::linux_devices::SystemAccessories accessories(
      std::make_shared<platform::bluez::SerialAccessories>(), usb.path);
  platform::bluez::BluezCentralFactory radio;
  std::ostringstream notes;
  EXPECT_TRUE(cli::scanBlePrinters(radio, 500ms, notes).empty());
  EXPECT_EQ(notes.str(),
            "orvante: no Bluetooth adapter (or no system bus): no BLE printers scanned\n");
  EXPECT_EQ(printed(cli::accessoryPrinters(accessories)),
            "usb://" + (usb.path / "lp0").string() + " lp0\n");
}

TEST(BluetoothAddress, APairedPrinterIsOpenedByItsAddressAndOthersSayWhy) {
  BluezRig bluez(0.5);
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:01", "Printer A");
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:02", "Never paired", false);
  bluez.bluez.setSerialResponder(answering({{"~!T", "OV-203\r"}}));

  auto streams = direct::openDeviceStreams({"bt", "00:11:62:aa:bb:01"}, *bluez.accessories);
  ASSERT_NE(streams.output, nullptr);
  streams.input->open();
  streams.output->open();
  ASSERT_TRUE(eventually([&] { return streams.output->streamStatus() == StreamStatus::Open; }));
  EXPECT_EQ(streams.output->write(bytesOf("~!T").data(), 3), 3);
  std::string reply;
  EXPECT_TRUE(eventually([&] {
    std::uint8_t block[16];
    if (streams.input->hasBytesAvailable()) {
      const auto count = streams.input->read(block, sizeof block);
      if (count > 0) reply += textOf(ByteView(block, static_cast<std::size_t>(count)));
    }
    return reply.size() >= 7;
  }));
  EXPECT_EQ(reply, "OV-203\r");
  streams.input->close();
  streams.output->close();

  const auto failure = [&](const std::string& address) -> std::string {
    try {
      direct::openDeviceStreams({"bt", address}, *bluez.accessories);
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
