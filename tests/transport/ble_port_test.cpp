// The BLE link: scanning, connecting and discovery with their log lines,
// 20-byte writes on both write paths, notifications and failures.

#include <gtest/gtest.h>

#include "links.hpp"
#include "log_capture.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

const ble::Uuid kReceive("49535343-1E4D-4BD9-BA61-23C647249616");
const ble::Uuid kWrite("49535343-8841-43F4-A8D4-ECBE34729BB3");

std::vector<std::size_t> packetSizes(const orvante::testing::FakePeripheral& printer) {
  std::vector<std::size_t> sizes;
  for (const auto& write : printer.writes()) sizes.push_back(write.data.size());
  return sizes;
}

}  // namespace

TEST(BlePort, AScanListsOnlyPeripheralsWithALocalName) {
  Rig rig;
  auto named = orvante::testing::FakePeripheral::printer("OV-203 BLE");
  auto unnamed = orvante::testing::FakePeripheral::printer("hidden");
  unnamed->setAdvertisedName(std::nullopt);
  auto blank = orvante::testing::FakePeripheral::printer("blank");
  blank->setAdvertisedName("");
  for (const auto& p : {named, unnamed, blank}) rig.radio->addPeripheral(p);
  rig.radio->setAutoAdvertise(false);
  TestSession session(rig.platform());
  LogCapture log;
  auto central = rig.radio->central();
  // The printers advertise while the caller waits.
  rig.clock->onPause([&](double seconds) {
    if (seconds > 0) {
      central->advertise();
      central->drain();
    }
  });
  rig.timeline->clear();

  const auto found = session.searchBLEDevice(2);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0], named);
  EXPECT_EQ(rig.timeline->script(), "pause 2");
  EXPECT_TRUE(log.has("localName:OV-203 BLE"));
  EXPECT_FALSE(central->scanning());

  // With no time to listen the list is empty.
  EXPECT_TRUE(session.searchBLEDevice(0).empty());
  EXPECT_EQ(central->scansStarted(), 2);
}

TEST(BlePort, OpeningDiscoversTheSerialServiceAndLogsEachStep) {
  Rig rig;
  LogCapture log;
  TestSession session(rig.platform());
  auto printer = orvante::testing::FakePeripheral::printer("OV-203 BLE");
  rig.radio->addPeripheral(printer);
  rig.timeline->clear();
  EXPECT_EQ(session.openport_ble(printer, 0.75), 1);
  EXPECT_EQ(rig.timeline->script(), "pause 0.75");
  EXPECT_EQ(session.BLEPortEnable, 1);
  EXPECT_FALSE(session.IsXpico);
  EXPECT_TRUE(printer->notifying(kReceive));
  EXPECT_EQ(session.cbWirteCharacteristic.load()->uuid(), kWrite);
  EXPECT_EQ(session.cbReadCharacteristic.load(), nullptr);
  EXPECT_EQ(session.cbService.load()->uuid().text(), "49535343-FE7D-4AE5-8FA9-9FAFD205E455");
  EXPECT_EQ(session.stream_status(), 2);

  rig.radio->central()->drain();
  const std::string id = *printer->identifier();
  for (const std::string& line :
       {std::string("UpdateState:PoweredOn\n"), std::string("Connect to OV-203 BLE"),
        std::string("connected"),
        "Connect To Peripheral with name: OV-203 BLE\nwith UUID:" + id + "\n",
        std::string("didDiscoverServices:\n"), std::string("====OV-203 BLE\n"),
        "=========== 2 of service for UUID " + id + " ===========\n",
        std::string("Service found with UUID: 49535343-FE7D-4AE5-8FA9-9FAFD205E455\n"),
        std::string("=========== 1 Characteristics of 180A service "),
        std::string("Manufacture: Orvante Labs\n"),
        std::string(
            "=========== 2 Characteristics of 49535343-FE7D-4AE5-8FA9-9FAFD205E455 service "),
        std::string(" 49535343-1E4D-4BD9-BA61-23C647249616 \n"),
        std::string(" 49535343-8841-43F4-A8D4-ECBE34729BB3 \n"),
        std::string("=== Finished set notification ===\n")}) {
    EXPECT_TRUE(log.has(line)) << line << log.dump();
  }
}

TEST(BlePort, MessagesGoOutIn20BytePacketsOnEitherWritePath) {
  for (const std::string maker : {"Orvante Labs", "Lantronix"}) {
    Rig rig;
    TestSession session(rig.platform());
    LogCapture log;
    auto printer = openBle(session, rig, maker);
    const bool bridge = maker == "Lantronix";
    EXPECT_EQ(session.IsXpico.load(), bridge);

    EXPECT_EQ(session.BLE_OutStream(pattern(45)), 1);
    EXPECT_EQ(session.BLE_OutStream(pattern(40)), 1);
    EXPECT_EQ(session.BLE_OutStream({}), 1);
    EXPECT_EQ(packetSizes(*printer), (std::vector<std::size_t>{20, 20, 5, 20, 20, 0}));
    for (const auto& write : printer->writes()) {
      EXPECT_EQ(write.type,
                bridge ? ble::WriteType::WithoutResponse : ble::WriteType::WithResponse);
      EXPECT_EQ(write.characteristic, kWrite);
    }
    // The bridge needs a tenth of a second after every packet.
    EXPECT_EQ(rig.timeline->pauses(), bridge ? std::vector<double>(6, 0.1) : std::vector<double>{});
    EXPECT_EQ(log.count("Write Data to BLE printer"), 6);
    rig.radio->central()->drain();
    EXPECT_EQ(log.count("Write Success"), bridge ? 0 : 6);
    // On the bridge the receive characteristic is kept to be read, not subscribed.
    EXPECT_EQ(session.cbReadCharacteristic.load() != nullptr, bridge);
    EXPECT_EQ(printer->notifying(kReceive), !bridge);
  }
}

TEST(BlePort, NotificationsCollectOnlyFromTheReceiveCharacteristicSinceTheLastSend) {
  Rig rig;
  TestSession session(rig.platform());
  auto printer = openBle(session, rig);
  auto central = rig.radio->central();
  session.sendcommand_utf8("~!T");
  printer->notify(kReceive, bytesOf("OV-"));
  printer->notify(kReceive, bytesOf("203\r"));
  central->drain();
  EXPECT_EQ(session.BLEReceivebuffer.load(), bytesOf("OV-203\r"));
  EXPECT_EQ(std::atomic_ref(BleReceivedLen).load(), 4);

  // A value from another characteristic (the manufacturer name, read again) is ignored.
  const auto infoService = printer->services().front();
  printer->readValue(infoService->characteristics().front());
  central->drain();
  EXPECT_EQ(session.BLEReceivebuffer.load(), bytesOf("OV-203\r"));

  // The next send starts a new reply.
  session.sendcommand_utf8("~!I");
  EXPECT_EQ(session.BLEReceivebuffer.load(), Bytes{});
}

TEST(BlePort, ReplacingTheReceiveBufferWhileNotificationsArriveIsSafe) {
  Rig rig;
  TestSession session(rig.platform());
  auto printer = openBle(session, rig);
  session.BLE_OutStream(viewOf("y"));
  std::atomic<bool> done{false};
  std::thread notifier([&] {
    for (int i = 0; i < 2000; ++i) printer->notify(kReceive, bytesOf("x"));
    done = true;
  });
  while (!done) session.BLE_OutStream(viewOf("y"));
  notifier.join();
  rig.radio->central()->drain();
  ASSERT_TRUE(session.BLEReceivebuffer.load().has_value());
  EXPECT_LE(session.BLEReceivebuffer.load()->size(), 2000u);
}

TEST(BlePort, DisconnectingLogsAndClearsTheFlag) {
  Rig rig;
  TestSession session(rig.platform());
  LogCapture log;
  session.BLE_Disconnect();
  EXPECT_TRUE(log.has("connectPeripheral == NULL"));

  // A peripheral that is still connecting is left alone.
  auto slow = orvante::testing::FakePeripheral::printer("Slow");
  slow->setConnectable(false);
  rig.radio->addPeripheral(slow);
  session.BLE_Connect(slow);
  session.BLE_Disconnect();
  EXPECT_EQ(slow->state(), ble::PeripheralState::Connecting);
  EXPECT_FALSE(log.has("disconnect-1"));

  // The printer going away in the middle of a message.
  auto printer = openBle(session, rig);
  printer->setResponder(
      [](orvante::testing::FakePeripheral& self, const ble::Uuid&, ByteView) { self.dropConnection(); });
  EXPECT_EQ(session.BLE_OutStream(pattern(100)), 1);
  ASSERT_TRUE(eventually([&] { return session.BLEPortEnable == 0; }));
  EXPECT_TRUE(log.has("disconnect-2"));
  EXPECT_LE(printer->writes().size(), 5u);
  EXPECT_EQ(session.clearbuffer(), -1);
}

TEST(BlePort, FailuresAreLoggedAndLeaveTheLinkUnready) {
  Rig rig;
  TestSession session(rig.platform());
  LogCapture log;
  auto central = rig.radio->central();

  auto noServices = orvante::testing::FakePeripheral::printer("A");
  noServices->setServiceDiscoveryError(ble::Error{1, "discovery failed"});
  rig.radio->addPeripheral(noServices);
  session.BLE_Connect(noServices);
  central->drain();
  EXPECT_TRUE(log.has("Service discovery was unsuccessfull !\n"));
  EXPECT_EQ(session.BLEPortEnable, 0);

  auto noCharacteristics = orvante::testing::FakePeripheral::printer("B");
  noCharacteristics->setCharacteristicDiscoveryError(ble::Error{2, "no characteristics"});
  rig.radio->addPeripheral(noCharacteristics);
  session.BLE_Connect(noCharacteristics);
  central->drain();
  EXPECT_TRUE(log.has("Characteristic discorvery unsuccessfull !\n"));
  EXPECT_EQ(session.BLEPortEnable, 0);

  auto printer = openBle(session, rig);
  printer->setWriteError(ble::Error{3, "The attribute could not be written."});
  EXPECT_EQ(session.BLE_OutStream(viewOf("CLS\r\n")), 1);
  central->drain();
  EXPECT_TRUE(log.has("Write Error:The attribute could not be written."));

  // State names, and none for a value outside the known ones.
  central->setState(ble::CentralState::Unauthorized);
  central->drain();
  central->setState(static_cast<ble::CentralState>(9));
  central->drain();
  EXPECT_TRUE(log.has("UpdateState:Unauthorized\n")) << log.dump();
  EXPECT_TRUE(log.has("UpdateState:none\n"));
}

TEST(BlePort, UuidsCompareAsUuids) {
  EXPECT_EQ(ble::Uuid("180a"), ble::Uuid("0000180A-0000-1000-8000-00805F9B34FB"));
  EXPECT_EQ(ble::Uuid("0000180A-0000-1000-8000-00805F9B34FB").text(), "180A");
  EXPECT_EQ(ble::Uuid("49535343-8841-43F4-A8d4-ECBE34729BB3"), kWrite);
  EXPECT_EQ(kWrite.text(), "49535343-8841-43F4-A8D4-ECBE34729BB3");
  EXPECT_FALSE(ble::Uuid("2A29") == ble::Uuid("2A28"));
  EXPECT_TRUE(ble::Uuid().isNull());
}
