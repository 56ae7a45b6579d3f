// orvante::Printer on a serial device (a pseudo-terminal standing in for a
// USB serial adapter) and on a USB printer device: exact bytes, a query
// round trip, and the reason for every address or device that fails.

#include <gtest/gtest.h>

#include "links.hpp"
#include "pty_printer.hpp"

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;

namespace {

std::string messageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const Error& error) {
    return error.what();
  }
  return "no error";
}

std::string openFailure(const std::string& uri) {
  return messageOf([&] { Printer::open(uri, 2s); });
}

}  // namespace

TEST(DevicePrinter, ASerialPrinterTakesALabelAndAnswersAQuery) {
  PtyPrinter printer(answering({{"~!T", "OV-203\r"}, {"\x1B!?", "\x04"}}));
  auto connection = Printer::open("serial://" + printer.path() + "?baud=9600");
  EXPECT_TRUE(connection.isOpen());
  const termios line = printer.line();
  EXPECT_EQ(::cfgetospeed(&line), B9600);

  const auto label = Label().size(50, 30).clear().text(24, 24, "3", "Hello").print();
  connection.print(label);
  ASSERT_TRUE(printer.peer().waitForBytes(label.bytes().size()));
  EXPECT_EQ(printer.peer().received(), label.bytes());
  EXPECT_EQ(connection.name(), "OV-203");
  EXPECT_TRUE(connection.status().outOfPaper());
  connection.close();
  EXPECT_FALSE(connection.isOpen());

  // Without a baud the line runs at 9600 too; with one, at that one.
  auto faster = Printer::open("serial://" + printer.path() + "?baud=115200");
  const termios fast = printer.line();
  EXPECT_EQ(::cfgetospeed(&fast), B115200);
}

TEST(DevicePrinter, AUsbPrinterDeviceCarriesBytesBothWays) {
  PtyPrinter printer(answering({{"~!T", "OV-203\r"}}));
  printer.makeRaw();  // a USB printer device has no line discipline
  auto connection = Printer::open("usb://" + printer.path());
  connection.send("CLS\r\n");
  EXPECT_EQ(connection.name(), "OV-203");
  EXPECT_EQ(textOf(printer.peer().received()), "CLS\r\n~!T");
}

TEST(DevicePrinter, BadDeviceAddressesAndMissingDevicesSayWhy) {
  EXPECT_EQ(openFailure("serial://dev/ttyUSB0"),
            "no device file in the printer address serial://dev/ttyUSB0: "
            "use serial:///dev/ttyUSB0?baud=9600");
  EXPECT_EQ(openFailure("serial:///dev/ttyUSB0?baud=fast"),
            "the baud \"fast\" is not a positive number");
  EXPECT_EQ(openFailure("serial:///dev/ttyUSB0?baud=-9600"),
            "the baud \"-9600\" is not a positive number");
  EXPECT_EQ(openFailure("serial:///dev/ttyUSB0?baud=12345"), "the baud 12345 is not one a tty has");
  EXPECT_EQ(openFailure("serial:///dev/ttyUSB0?parity=odd"),
            "unknown setting \"parity=odd\" in serial:///dev/ttyUSB0?parity=odd: only baud=N is known");
  EXPECT_EQ(openFailure("usb://lp0"),
            "no device file in the printer address usb://lp0: use usb:///dev/usb/lp0");
  EXPECT_EQ(openFailure("bt://00:11:62:AA:BB"),
            "\"00:11:62:AA:BB\" in bt://00:11:62:AA:BB is no Bluetooth address: "
            "use bt://AA:BB:CC:DD:EE:FF");
  EXPECT_EQ(openFailure("bt://00:11:62:AA:BB:0G"),
            "\"00:11:62:AA:BB:0G\" in bt://00:11:62:AA:BB:0G is no Bluetooth address: "
            "use bt://AA:BB:CC:DD:EE:FF");

  EXPECT_EQ(openFailure("serial:///nonexistent/ttyUSB9"),
            "cannot open /nonexistent/ttyUSB9: No such file or directory");
  EXPECT_EQ(openFailure("usb:///nonexistent/lp0"),
            "cannot open /nonexistent/lp0: No such file or directory");
  EXPECT_EQ(openFailure("serial:///dev/null"),
            "/dev/null is no serial device: Inappropriate ioctl for device");
}

TEST(DevicePrinter, AnUnpluggedSerialPrinterFailsTheNextOperationWithTheReason) {
  PtyPrinter printer;
  auto connection = Printer::open("serial://" + printer.path());
  connection.send("CLS\r\n");
  ASSERT_TRUE(printer.peer().waitForBytes(5));
  printer.unplug();
  EXPECT_TRUE(eventually([&] { return !connection.isOpen(); }));
  EXPECT_EQ(messageOf([&] { connection.send("PRINT 1\r\n"); }),
            "sending to " + printer.path() + " failed after 0 of 9 bytes: the device hung up");
}
