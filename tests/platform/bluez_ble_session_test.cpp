// The BLE link of a session over BlueZ, through the stand-in daemon: the
// scan, both write paths packet by packet, notifications and queries, and
// BlueZ's failures reaching the session as errors and disconnections.

#include <gtest/gtest.h>

#include "bluez_rig.hpp"
#include "log_capture.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

std::vector<std::size_t> packetSizes(const std::vector<FakeBluez::Write>& writes) {
  std::vector<std::size_t> sizes;
  for (const auto& write : writes) sizes.push_back(write.data.size());
  return sizes;
}

Bytes joined(const std::vector<FakeBluez::Write>& writes) {
  Bytes bytes;
  for (const auto& write : writes) bytes.insert(bytes.end(), write.data.begin(), write.data.end());
  return bytes;
}

}  // namespace

TEST(BluezBleSession, AScanListsKnownAndNewlyHeardPrintersWithALocalName) {
  BluezRig bluez;
  bluez.bluez.addPrinter("00:11:62:00:00:01", "OV-203 BLE");
  bluez.bluez.addPrinter("00:11:62:00:00:02", std::nullopt);
  bluez.bluez.addPrinter("00:11:62:00:00:03", "Late printer", "Orvante Labs", false);
  TestSession session(bluez.platform());
  LogCapture log;
  bluez.rig.clock->onPause([&](double seconds) {
    if (seconds > 0) eventually([&] { return log.has("localName:Late printer"); });
  });

  const auto found = session.searchBLEDevice(2);
  std::vector<std::string> names, addresses;
  for (const auto& peripheral : found) {
    names.push_back(peripheral->name().value_or("?"));
    addresses.push_back(peripheral->identifier().value_or("?"));
  }
  EXPECT_EQ(names, (std::vector<std::string>{"OV-203 BLE", "Late printer"}));
  EXPECT_EQ(addresses, (std::vector<std::string>{"00:11:62:00:00:01", "00:11:62:00:00:03"}));
  EXPECT_TRUE(eventually([&] { return !bluez.bluez.discovering(); }));

  // A second scan reports the printers again, each once.
  bluez.rig.clock->onPause([&](double) {
    eventually([&] { return session.BLEDeviceList.load()->size() == 2; });
  });
  EXPECT_EQ(session.searchBLEDevice(1).size(), 2u);
}

TEST(BluezBleSession, MessagesGoOutIn20BytePacketsWithTheWriteTypeOfEachPath) {
  for (const std::string maker : {"Orvante Labs", "Lantronix"}) {
    BluezRig bluez;
    const auto path = bluez.bluez.addPrinter("00:11:62:00:00:01", "BLE printer", maker);
    TestSession session(bluez.platform());
    LogCapture log;
    ASSERT_TRUE(openBluezPrinter(session, bluez, "BLE printer"));
    const bool bridge = maker == "Lantronix";
    EXPECT_EQ(session.IsXpico.load(), bridge) << maker;
    EXPECT_TRUE(log.has("Manufacture: " + maker + "\n")) << log.dump();

    Bytes sent = pattern(45);
    EXPECT_EQ(session.BLE_OutStream(sent), 1);
    EXPECT_EQ(session.BLE_OutStream(pattern(40)), 1);
    EXPECT_EQ(session.BLE_OutStream({}), 1);
    ASSERT_TRUE(eventually([&] { return bluez.bluez.writes(path).size() == 6; })) << maker;
    const auto writes = bluez.bluez.writes(path);
    EXPECT_EQ(packetSizes(writes), (std::vector<std::size_t>{20, 20, 5, 20, 20, 0}));
    const auto second = pattern(40);
    sent.insert(sent.end(), second.begin(), second.end());
    EXPECT_EQ(joined(writes), sent);
    for (const auto& write : writes) EXPECT_EQ(write.type, bridge ? "command" : "request");
    // Only acknowledged writes report back.
    if (!bridge) {
      EXPECT_TRUE(eventually([&] { return log.count("Write Success") == 6; }));
    }
    EXPECT_EQ(bluez.bluez.notifying(path), !bridge);
  }
}

// 3000 bytes are 150 writes at once, more calls than the bus lets one
// connection await while a printer acknowledges one write per connection
// interval: the backend keeps the rest back, in order, until replies come,
// so none is refused.
TEST(BluezBleSession, AMessageOfManyPacketsArrivesWhole) {
  for (const std::string maker : {"Orvante Labs", "Lantronix"}) {
    BluezRig bluez;
    bluez.bluez.setConnectionInterval(std::chrono::milliseconds(10));
    const auto path = bluez.bluez.addPrinter("00:11:62:00:00:01", "BLE printer", maker);
    TestSession session(bluez.platform());
    LogCapture log;
    ASSERT_TRUE(openBluezPrinter(session, bluez, "BLE printer"));
    const Bytes sent = pattern(3000);
    EXPECT_EQ(session.BLE_OutStream(sent), 1);
    EXPECT_TRUE(eventually([&] { return bluez.bluez.writes(path).size() == 150; }))
        << maker << ": " << bluez.bluez.writes(path).size();
    EXPECT_EQ(joined(bluez.bluez.writes(path)), sent) << maker;
    for (const auto& line : log.lines()) EXPECT_NE(line.rfind("Write Error:", 0), 0u) << line;
  }
}

TEST(BluezBleSession, NotificationsAndQueryRepliesCollectInTheReceiveBuffer) {
  BluezRig bluez;
  const auto path = bluez.bluez.addPrinter("00:11:62:00:00:01", "BLE printer");
  TestSession session(bluez.platform());
  ASSERT_TRUE(openBluezPrinter(session, bluez, "BLE printer"));
  ASSERT_TRUE(eventually([&] { return bluez.bluez.notifying(path); }));

  session.sendcommand_utf8("~!I");
  bluez.bluez.notify(path, bytesOf("OV-"));
  bluez.bluez.notify(path, bytesOf("203\r"));
  EXPECT_TRUE(eventually([&] { return session.BLEReceivebuffer.load() == bytesOf("OV-203\r"); }));

  bluez.bluez.setResponder([](FakeBluez& self, const std::string& device, ByteView data) {
    if (textOf(data) == "~!T") self.notify(device, bytesOf("OV-203 BLE\r"));
  });
  EXPECT_EQ(session.printer_name(), bytesOf("OV-203 BLE\r"));
}

TEST(BluezBleSession, OnASerialBridgeAQueryReadsTheReceiveCharacteristic) {
  BluezRig bluez;
  const auto path = bluez.bluez.addPrinter("00:11:62:00:00:01", "Bridge", "Lantronix");
  TestSession session(bluez.platform());
  ASSERT_TRUE(openBluezPrinter(session, bluez, "Bridge"));
  bluez.bluez.setResponder(
      [](FakeBluez& self, const std::string& device, ByteView) { self.setValue(device, {0x00}); });
  EXPECT_EQ(session.printerstatus(), Bytes{0x00});
  EXPECT_GE(bluez.bluez.reads(path), 4);
  EXPECT_FALSE(bluez.bluez.notifying(path));
}

TEST(BluezBleSession, BluezFailuresReachTheSessionAsErrorsAndDisconnections) {
  BluezRig bluez;
  const auto path = bluez.bluez.addPrinter("00:11:62:00:00:01", "BLE printer");
  TestSession session(bluez.platform());
  LogCapture log;
  auto printer = openBluezPrinter(session, bluez, "BLE printer");
  ASSERT_TRUE(printer);

  bluez.bluez.failMethod(path, "WriteValue", "org.bluez.Error.Failed");
  EXPECT_EQ(session.BLE_OutStream(viewOf("CLS\r\n")), 1);
  EXPECT_TRUE(eventually([&] { return log.has("Write Error:WriteValue failed"); })) << log.dump();

  // The radio is switched off: the state changes and the link drops.
  bluez.bluez.setPowered(false);
  EXPECT_TRUE(eventually([&] { return log.has("UpdateState:PoweredOff\n"); }));
  EXPECT_TRUE(eventually([&] { return log.has("disconnect-2"); }));
  EXPECT_EQ(printer->state(), ble::PeripheralState::Disconnected);
  EXPECT_EQ(session.BLEPortEnable, 0);
  const int poweredOn = log.count("UpdateState:PoweredOn\n");
  bluez.bluez.setPowered(true);
  EXPECT_TRUE(eventually([&] { return log.count("UpdateState:PoweredOn\n") == poweredOn + 1; }));

  // A connection BlueZ refuses ends as a disconnection, not a hang.
  bluez.bluez.failMethod(path, "Connect", "org.bluez.Error.InProgress");
  session.BLE_Connect(printer);
  EXPECT_TRUE(eventually([&] { return log.count("disconnect-2") == 2; }));
  EXPECT_EQ(printer->state(), ble::PeripheralState::Disconnected);
}

TEST(BluezBleSession, APrinterRemovedInTheMiddleOfAMessageEndsTheLink) {
  BluezRig bluez;
  const auto path = bluez.bluez.addPrinter("00:11:62:00:00:01", "BLE printer");
  TestSession session(bluez.platform());
  LogCapture log;
  ASSERT_TRUE(openBluezPrinter(session, bluez, "BLE printer"));
  bluez.bluez.setResponder(
      [](FakeBluez& self, const std::string& device, ByteView) { self.removeDevice(device); });
  EXPECT_EQ(session.BLE_OutStream(pattern(100)), 1);
  EXPECT_TRUE(eventually([&] { return log.has("disconnect-2"); }));
  EXPECT_EQ(session.BLEPortEnable, 0);
  // The writes BlueZ no longer takes fail without hanging the sender.
  const auto replies = [&] {
    int count = 0;
    for (const auto& line : log.lines()) {
      count += line == "Write Success" || line.rfind("Write Error:", 0) == 0;
    }
    return count;
  };
  EXPECT_TRUE(eventually([&] { return replies() == 5; })) << log.dump();
  EXPECT_LE(bluez.bluez.writes(path).size(), 5u);
}

TEST(BluezBleSession, DisconnectingEndsTheLinkOnce) {
  BluezRig bluez;
  const auto path = bluez.bluez.addPrinter("00:11:62:00:00:01", "BLE printer");
  TestSession session(bluez.platform());
  LogCapture log;
  auto printer = openBluezPrinter(session, bluez, "BLE printer");
  ASSERT_TRUE(printer);
  session.BLE_Disconnect();
  EXPECT_TRUE(eventually([&] { return log.has("disconnect-2"); }));
  EXPECT_EQ(printer->state(), ble::PeripheralState::Disconnected);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(log.count("disconnect-2"), 1);

  // Reconnecting works, and the printer dropping the link is reported.
  EXPECT_EQ(session.openport_ble(printer), 1);
  EXPECT_EQ(bluez.bluez.connects(path), 2);
  bluez.bluez.dropConnection(path);
  EXPECT_TRUE(eventually([&] { return log.count("disconnect-2") == 2; }));
}
