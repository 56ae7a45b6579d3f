// orvante::Printer over ble:// through the BlueZ central and the stand-in
// daemon, with the virtual printer's engine behind the printer's
// characteristics: labels are rendered, queries answered by notification,
// writes go out acknowledged in pieces of the link's size, and the link's
// failures end in orvante::Error.

#include <gtest/gtest.h>

#include <orvante/label.hpp>
#include <orvante/printer.hpp>

#include "bluez_rig.hpp"
#include "bluez_virtual_printer.hpp"

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;

namespace {

const std::string kAddress = "00:11:62:AB:CD:07";

struct DoorRig {
  PrivateBus bus;
  SystemBusAt system{bus.address()};
  FakeBluez bluez{bus.address()};
  BluezVirtualPrinter printer{bluez};
};

std::uint32_t bigEndian(const Bytes& bytes, std::size_t at) {
  return (std::uint32_t{bytes[at]} << 24) | (std::uint32_t{bytes[at + 1]} << 16) |
         (std::uint32_t{bytes[at + 2]} << 8) | bytes[at + 3];
}

// A 50 x 30 mm label: text, a barcode and a black box.
Label shippingLabel() {
  Label label;
  label.size(50, 30).gap(2).clear();
  label.text(20, 20, "3", "BLE DOOR").barcode(20, 70, "128", "SHIP-0007", 60);
  Bytes black(48 * 48 * 4, 0);
  for (std::size_t alpha = 3; alpha < black.size(); alpha += 4) black[alpha] = 255;
  label.image(300, 150, Image(48, 48, std::move(black))).print();
  return label;
}

}  // namespace

TEST(BluezBleDoor, ALabelGoesOutInAcknowledgedMtuSizedWritesAndComesOutRendered) {
  DoorRig rig;
  // Heard only once the scan starts; the address is matched whatever its case.
  const auto path = rig.bluez.addPrinter(kAddress, "BLE printer", "Orvante Labs", false);
  rig.bluez.setMtu(path, 185);
  auto printer = Printer::open("ble://00:11:62:ab:cd:07");
  const Label label = shippingLabel();
  printer.print(label);

  // Every write is acknowledged and carries up to MTU - 3 bytes.
  const auto writes = rig.bluez.writes(path);
  Bytes joined;
  for (std::size_t i = 0; i < writes.size(); ++i) {
    EXPECT_EQ(writes[i].type, "request");
    if (i + 1 < writes.size()) {
      EXPECT_EQ(writes[i].data.size(), 182u) << i;
    }
    EXPECT_LE(writes[i].data.size(), 182u);
    joined.insert(joined.end(), writes[i].data.begin(), writes[i].data.end());
  }
  EXPECT_EQ(joined, label.bytes());

  std::vector<vprinter::PrintedLabel> printed;
  ASSERT_TRUE(eventually([&] {
    for (auto& one : rig.printer.takePrinted()) printed.push_back(std::move(one));
    return !printed.empty();
  }));
  ASSERT_EQ(printed.size(), 1u);
  const auto& out = printed.front();
  const Bytes png = out.png();
  ASSERT_GT(png.size(), 24u);
  EXPECT_EQ(bigEndian(png, 16), 400u);  // 50 mm at 8 dots per mm
  EXPECT_EQ(bigEndian(png, 20), 240u);
  EXPECT_EQ(out.printedIn(300, 150, 348, 198), 48u * 48u);  // the box
  EXPECT_GT(out.printedIn(20, 20, 300, 130), 0u);            // text and barcode
  EXPECT_EQ(out.printedIn(360, 0, 400, 140), 0u);            // blank beside them

  // Queries are answered through notifications.
  EXPECT_EQ(printer.name(), "ORVANTE VP-1");
  EXPECT_TRUE(printer.status().ready());
  rig.printer.setStatus(0x04);
  EXPECT_TRUE(printer.status().outOfPaper());
  printer.close();
  EXPECT_TRUE(eventually([&] { return !rig.bluez.notifying(path); }));
}

TEST(BluezBleDoor, WithoutAnAgreedMtuWritesCarry20Bytes) {
  DoorRig rig;
  const auto path = rig.bluez.addPrinter(kAddress, "BLE printer");
  auto printer = Printer::open("ble://" + kAddress);
  printer.send(std::string(45, 'x'));
  std::vector<std::size_t> sizes;
  for (const auto& write : rig.bluez.writes(path)) sizes.push_back(write.data.size());
  EXPECT_EQ(sizes, (std::vector<std::size_t>{20, 20, 5}));
}

TEST(BluezBleDoor, FailuresOfTheLinkEndInAnErrorThatSaysWhy) {
  auto message = [](const std::function<void()>& f) -> std::string {
    try {
      f();
    } catch (const Error& error) {
      return error.what();
    }
    return "no error";
  };

  {
    // No printer of that address is in range: the open's time limit ends the scan.
    DoorRig rig;
    rig.bluez.addPrinter(kAddress, "BLE printer");
    EXPECT_NE(message([] { Printer::open("ble://00:11:62:00:00:99", 300ms); })
                  .find("no connection to ble://00:11:62:00:00:99 within 300 ms"),
              std::string::npos);
    EXPECT_TRUE(eventually([&] { return !rig.bluez.discovering(); }));
    EXPECT_NE(message([] { Printer::open("ble://"); }).find("no device address"), std::string::npos);
  }
  {
    // BlueZ cannot connect.
    DoorRig rig;
    const auto path = rig.bluez.addPrinter(kAddress, "BLE printer");
    rig.bluez.failMethod(path, "Connect", "org.bluez.Error.Failed");
    EXPECT_NE(message([] { Printer::open("ble://" + kAddress); }).find("the connection failed"),
              std::string::npos);
  }
  {
    // The printer refuses a write.
    DoorRig rig;
    const auto path = rig.bluez.addPrinter(kAddress, "BLE printer");
    auto printer = Printer::open("ble://" + kAddress);
    rig.bluez.failMethod(path, "WriteValue", "org.bluez.Error.Failed");
    EXPECT_NE(message([&] { printer.print(shippingLabel()); })
                  .find("the printer refused a write: WriteValue failed"),
              std::string::npos);
    EXPECT_FALSE(printer.isOpen());
  }
  {
    // The printer goes away in the middle of a label.
    DoorRig rig;
    const auto path = rig.bluez.addPrinter(kAddress, "BLE printer");
    rig.bluez.setConnectionInterval(2ms);
    auto printer = Printer::open("ble://" + kAddress);
    bool removed = false;
    printer.onProgress([&](std::size_t sent, std::size_t) {
      if (sent < 100 || removed) return;
      removed = true;
      rig.bluez.removeDevice(path);
    });
    const auto why = message([&] { printer.print(shippingLabel()); });
    EXPECT_NE(why.find("sending to ble://" + kAddress + " failed after"), std::string::npos) << why;
    EXPECT_NE(why.find("the printer disconnected"), std::string::npos) << why;
    EXPECT_NE(message([&] { printer.name(); }), "no error");
  }
}

TEST(BluezBleDoor, ThePublishedSerialProfileLinkReachesTheVirtualPrinterToo) {
  BluezRig bluez(0.5);
  BluezVirtualPrinter engine(bluez.bluez);
  bluez.bluez.addSerialPrinter("00:11:62:AA:BB:01", "Printer A");
  TestSession session(bluez.platform());
  ASSERT_EQ(session.openportMFI(), 1);
  ASSERT_TRUE(eventually([&] { return session.stream_status() == 2; }));

  session.setup(50, 30, 4, 8, 0, 2, 0);
  session.clearbuffer();
  session.printerfont(20, 20, "3", 0, 1, 1, "SERIAL");
  EXPECT_EQ(session.printlabel(1, 1), 1);
  EXPECT_EQ(session.printer_name(), bytesOf("ORVANTE VP-1\r"));
  std::vector<vprinter::PrintedLabel> printed;
  ASSERT_TRUE(eventually([&] {
    for (auto& one : engine.takePrinted()) printed.push_back(std::move(one));
    return !printed.empty();
  }));
  EXPECT_EQ(printed.front().width(), 400);
  EXPECT_EQ(printed.front().height(), 240);
  EXPECT_GT(printed.front().printedIn(20, 20, 120, 44), 0u);
  EXPECT_EQ(session.closeport(), 1);
}
