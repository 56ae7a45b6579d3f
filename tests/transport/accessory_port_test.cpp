// The accessory link: finding the printer, opening its session, the point
// at which each variant sets MFI_port, and the link end to end.

#include <gtest/gtest.h>

#include "links.hpp"
#include "log_capture.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

// Accessory opens take a tenth of their pause for real, so the accessory
// thread has run by the time the result is read.
constexpr double kTenth = 0.1;

std::shared_ptr<orvante::testing::FakeAccessory> printerNamed(std::string name,
                                                   std::string mac = "00:11:22:33:44:55",
                                                   std::string protocol = kDataPath) {
  return std::make_shared<orvante::testing::FakeAccessory>(
      std::move(name), std::vector<std::string>{"com.example.other", std::move(protocol)},
      std::map<std::string, std::string>{{"macAddress", std::move(mac)}});
}

}  // namespace

TEST(AccessoryPort, WithNoPrinterTheVariantsDifferInWhenTheyRaiseTheFlag) {
  struct Case {
    const char* name;
    std::function<std::int64_t(TestSession&)> open;
    double pause;
    std::int64_t flag;
  };
  const Case cases[] = {
      {"openportMFI", [](TestSession& s) { return s.openportMFI(); }, 0.3, 0},
      {"openportMFI_delay:", [](TestSession& s) { return s.openportMFI_delay(1.0); }, 1.0, 1},
      {"openportMFI:", [](TestSession& s) { return s.openportMFI(std::string("com.x")); }, 0.2, 1},
      {"openportMFI_delay:delay:",
       [](TestSession& s) { return s.openportMFI_delay(std::string("com.x"), 0.7); }, 0.7, 1},
      {"openportMFI_withname:", [](TestSession& s) { return s.openportMFI_withname("P"); }, 0.3, 0},
      {"openportMFI_withname:delay:",
       [](TestSession& s) { return s.openportMFI_withname("P", 0.4); }, 0.4, 1},
  };
  for (const auto& current : cases) {
    Rig rig;
    TestSession session(rig.platform());
    rig.timeline->clear();
    EXPECT_EQ(current.open(session), -1) << current.name;
    EXPECT_EQ(rig.timeline->pauses(), std::vector<double>{current.pause}) << current.name;
    EXPECT_EQ(session.MFI_port, current.flag) << current.name;
    EXPECT_EQ(session.MFIPortEnable, 0) << current.name;
    EXPECT_EQ(rig.accessories->sessionsOpened(), 0);
  }
}

TEST(AccessoryPort, OpensTheFirstPrinterWithTheProtocolAndCarriesCommandsAndReplies) {
  Rig rig(kTenth);
  rig.accessories->connect(std::make_shared<orvante::testing::FakeAccessory>(
      "Scanner", std::vector<std::string>{"com.example.scanner"}));
  rig.accessories->connect(printerNamed("Printer A", "AA:AA"));
  rig.accessories->connect(printerNamed("Printer B", "BB:BB"));
  rig.accessories->setResponder(answering({{"~!T", "OV-203\r"}}));
  TestSession session(rig.platform());
  EXPECT_EQ(session.BTMAC(), std::nullopt);

  EXPECT_EQ(session.openportMFI(), 1);
  EXPECT_EQ(session.MFI_port, 1);
  EXPECT_EQ(session.MFIPortEnable, 1);
  EXPECT_EQ(session.accessory()->name(), "Printer A");
  EXPECT_EQ(session.session()->protocolString(), kDataPath);
  EXPECT_EQ(session.BTMAC(), "AA:AA");
  ASSERT_TRUE(eventually([&] { return session.stream_status() == 2; }));

  EXPECT_EQ(session.printlabel(1, 1), 1);
  EXPECT_EQ(session.printer_name(), bytesOf("OV-203\r"));
  auto printer = rig.accessories->lastPrinter();
  ASSERT_TRUE(printer->waitForBytes(14));
  EXPECT_EQ(textOf(printer->received()), "PRINT 1,1\r\n~!T");
}

TEST(AccessoryPort, ByNameOnlyTheFirstListedPrinterCanBeOpened) {
  Rig rig(kTenth);
  rig.accessories->connect(printerNamed("Printer A"));
  rig.accessories->connect(printerNamed("Printer B"));
  TestSession session(rig.platform());
  EXPECT_EQ(session.openportMFI_withname("Printer B"), -1);
  EXPECT_EQ(session.MFI_port, 0);
  EXPECT_EQ(rig.accessories->sessionsOpened(), 0);
  EXPECT_EQ(session.openportMFI_withname("Printer A"), 1);
  EXPECT_EQ(session.MFI_port, 1);
}

TEST(AccessoryPort, AClosedLinkReopensTheStoredPrinterEvenWhenItIsGone) {
  Rig rig(kTenth);
  rig.accessories->connect(printerNamed("Printer A"));
  TestSession session(rig.platform());
  ASSERT_EQ(session.openportMFI(), 1);
  EXPECT_EQ(session.closeport(), 1);
  EXPECT_EQ(session.session(), nullptr);
  EXPECT_NE(session.accessory(), nullptr);

  rig.accessories->disconnectAll();
  EXPECT_EQ(session.openportMFI(), 1);
  EXPECT_EQ(rig.accessories->sessionsOpened(), 2);
  EXPECT_NE(session.session(), nullptr);
}

TEST(AccessoryPort, ASessionThatCannotBeMadeStillReportsTheLinkOpen) {
  Rig rig(kTenth);
  rig.accessories->connect(printerNamed("Printer A"));
  rig.accessories->failSessions(true);
  TestSession session(rig.platform());
  EXPECT_EQ(session.openportMFI(), 1);
  EXPECT_EQ(session.session(), nullptr);
  EXPECT_EQ(session.stream_status(), -1);
  // Output on a link without streams goes nowhere and does not hang.
  EXPECT_EQ(session.sendcommand_utf8("CLS\r\n"), 1);
  EXPECT_EQ(session.clearbuffer(), 1);
  EXPECT_EQ(session.closeport(), 1);
}

TEST(AccessoryPort, SearchShowsTheApplicationsPicker) {
  Rig rig;
  TestSession session(rig.platform());
  session.searchMFI();
  EXPECT_EQ(rig.accessories->pickerShown(), 1);

  // On the system's accessories the picker is the application's hook.
  int shown = 0;
  setAccessoryPicker([&] { ++shown; });
  TestSession onSystem(Platform{rig.clock, nullptr, nullptr, rig.radio});
  onSystem.searchMFI();
  setAccessoryPicker(nullptr);
  onSystem.searchMFI();
  EXPECT_EQ(shown, 1);
}
