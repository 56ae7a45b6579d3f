// Printers on devices of this computer as accessories: USB printer devices
// found in a directory, serial devices the application adds, listed after
// the Bluetooth printers and opened by the published session.

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "links.hpp"
#include "platform/linux/system_accessories.hpp"
#include "platform/linux/usb_printers.hpp"
#include "pty_printer.hpp"
#include <orvante/platform/serial_printers.hpp>

using namespace orvante;
using namespace orvante::testing;
namespace fs = std::filesystem;

namespace {

// A directory standing in for /dev/usb, removed at the end.
struct UsbDirectory {
  UsbDirectory() {
    fs::remove_all(path);
    fs::create_directories(path);
  }
  ~UsbDirectory() { fs::remove_all(path); }
  // Makes the device appear as `name`.
  void link(const std::string& name, const std::string& device) const {
    fs::create_symlink(device, path / name);
  }
  const fs::path path = fs::temp_directory_path() / ("orvante-usb-" + std::to_string(::getpid()));
};

// A serial device added for one test and removed after it.
struct AddedSerialPrinter {
  AddedSerialPrinter(const std::string& path, int baud) : path(path) { addSerialPrinter(path, baud); }
  ~AddedSerialPrinter() { removeSerialPrinter(path); }
  std::string path;
};

std::vector<std::string> namesOf(const std::vector<std::shared_ptr<Accessory>>& accessories) {
  std::vector<std::string> names;
  for (const auto& accessory : accessories) names.push_back(accessory->name());
  return names;
}

// The rig's platform with the Linux accessories in place of the fake ones;
// the rig's fake accessories stand for the paired Bluetooth printers.
struct DeviceRig {
  explicit DeviceRig(double realFraction = 0.5) : rig(realFraction) {}
  Platform platform() const { return {rig.clock, rig.streams, accessories, rig.radio}; }
  Rig rig;
  UsbDirectory usb;
  std::shared_ptr<platform::linux_devices::SystemAccessories> accessories =
      std::make_shared<platform::linux_devices::SystemAccessories>(rig.accessories, usb.path);
};

}  // namespace

TEST(DeviceAccessories, BluetoothThenUsbInNumberOrderThenTheAddedSerialDevices) {
  DeviceRig devices;
  devices.rig.accessories->connect(std::make_shared<FakeAccessory>(
      "Paired printer", std::vector<std::string>{kDataPath},
      std::map<std::string, std::string>{{"macAddress", "00:11:62:AA:BB:01"}}));
  PtyPrinter first, second, serial;
  devices.usb.link("lp10", second.path());
  devices.usb.link("lp2", first.path());
  devices.usb.link("lpx", first.path());
  devices.usb.link("ttyS0", first.path());
  AddedSerialPrinter added(serial.path(), 19200);

  const auto accessories = devices.accessories->connectedAccessories();
  // A device that answers no ID request (a tty here) is named by its file.
  EXPECT_EQ(namesOf(accessories),
            (std::vector<std::string>{"Paired printer", "lp2", "lp10", serial.path()}));
  EXPECT_EQ(accessories[1]->protocolStrings(), std::vector<std::string>{kDataPath});
  EXPECT_EQ(accessories[1]->valueForKey("uri"), "usb://" + (devices.usb.path / "lp2").string());
  EXPECT_EQ(accessories[1]->valueForKey("macAddress"), std::nullopt);
  EXPECT_EQ(accessories[3]->valueForKey("uri"), "serial://" + serial.path() + "?baud=19200");
  EXPECT_EQ(accessories[3]->valueForKey("path"), serial.path());

  // Each opens through the backend that listed it.
  EXPECT_NE(devices.accessories->openSession(accessories[0], kDataPath), nullptr);
  EXPECT_EQ(devices.rig.accessories->sessionsOpened(), 1);
  EXPECT_EQ(devices.accessories->openSession(accessories[1], "com.example.other"), nullptr);
  first.makeRaw();
  auto usbSession = devices.accessories->openSession(accessories[1], kDataPath);
  ASSERT_NE(usbSession, nullptr);
  EXPECT_EQ(devices.rig.accessories->sessionsOpened(), 1);
  usbSession->outputStream()->open();
  ASSERT_TRUE(eventually(
      [&] { return usbSession->outputStream()->streamStatus() == StreamStatus::Open; }));
  EXPECT_EQ(usbSession->outputStream()->write(bytesOf("CLS\r\n").data(), 5), 5);
  ASSERT_TRUE(first.peer().waitForBytes(5));
  EXPECT_EQ(textOf(first.peer().received()), "CLS\r\n");

  // Removed, a serial device is no longer listed.
  EXPECT_TRUE(removeSerialPrinter(serial.path()));
  EXPECT_FALSE(removeSerialPrinter(serial.path()));
  EXPECT_EQ(devices.accessories->connectedAccessories().size(), 3u);
}

TEST(DeviceAccessories, AMissingDirectoryOrDeviceAndABadBaudAreHandled) {
  EXPECT_TRUE(platform::linux_devices::listUsbPrinters("/nonexistent/orvante-usb").empty());
  EXPECT_THROW(addSerialPrinter("/dev/ttyS0", 12345), std::invalid_argument);
  EXPECT_THROW(addSerialPrinter("/dev/ttyS0", 0), std::invalid_argument);

  DeviceRig devices;
  AddedSerialPrinter gone("/nonexistent/ttyUSB7", 9600);
  devices.usb.link("lp0", "/nonexistent/lp0");
  const auto accessories = devices.accessories->connectedAccessories();
  ASSERT_EQ(namesOf(accessories), (std::vector<std::string>{"lp0", "/nonexistent/ttyUSB7"}));
  EXPECT_EQ(devices.accessories->openSession(accessories[0], kDataPath), nullptr);
  EXPECT_EQ(devices.accessories->openSession(accessories[1], kDataPath), nullptr);
  EXPECT_THROW(platform::linux_devices::openUsbPrinter("/nonexistent/lp0"), std::runtime_error);
}

TEST(DeviceAccessories, TheSessionOpensASerialPrinterRawAndCarriesALabelAndAReply) {
  DeviceRig devices;
  PtyPrinter printer(answering({{"~!T", "OV-203\r"}}));
  AddedSerialPrinter added(printer.path(), 115200);
  TestSession session(devices.platform());
  EXPECT_EQ(session.openportMFI(std::string(kDataPath)), 1);
  EXPECT_EQ(session.accessory()->name(), printer.path());
  EXPECT_EQ(session.BTMAC(), std::nullopt);
  ASSERT_NE(session.session(), nullptr);
  ASSERT_TRUE(eventually([&] { return session.stream_status() == 2; }));

  const termios line = printer.line();
  EXPECT_EQ(::cfgetospeed(&line), B115200);
  EXPECT_EQ(::cfgetispeed(&line), B115200);
  EXPECT_EQ(line.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), tcflag_t{CS8});
  EXPECT_EQ(line.c_lflag & (ICANON | ECHO), 0u);
  EXPECT_EQ(line.c_oflag & OPOST, 0u);

  EXPECT_EQ(session.printlabel(1, 1), 1);
  EXPECT_EQ(session.printer_name(), bytesOf("OV-203\r"));
  // A line left cooked would have turned "\n" into "\r\n" on the way.
  ASSERT_TRUE(printer.peer().waitForBytes(14));
  EXPECT_EQ(textOf(printer.peer().received()), "PRINT 1,1\r\n~!T");
  EXPECT_EQ(session.closeport(), 1);
}
