// Device configuration: wireless network lines, battery reports and RFID.

#include <gtest/gtest.h>

#include <stdexcept>

#include "links.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

constexpr double kTenth = 0.1;

std::vector<std::pair<std::string, std::string>> batteryReplies(std::string report) {
  return {{"DIAGNOSTIC INTERFACE NET\r\n\r\n", "{INTERFACE|NET}\r\n"},
          {"DIAGNOSTIC REPORT SMBVOLTAGE\r\n\r\n", std::move(report)}};
}

}  // namespace

TEST(DeviceConfiguration, WirelessLinesAreExactAndAlwaysReportOne) {
  Rig rig;
  TestSession session(rig.platform());
  // Without a link they still report "1".
  EXPECT_EQ(session.WiFi_DHCP(), "1");

  LoopbackPrinter printer;
  openTcp(session, rig, printer);
  EXPECT_EQ(session.WiFi_Default(), "1");
  EXPECT_EQ(session.WiFi_SSID("shop floor"), "1");
  EXPECT_EQ(session.WiFi_WPA("s3cret"), "1");
  EXPECT_EQ(session.WiFi_WEP(1, "ABCDE"), "1");
  EXPECT_EQ(session.WiFi_WEP(0x100000002LL, "K"), "1");
  EXPECT_EQ(session.WiFi_DHCP(), "1");
  EXPECT_EQ(session.WiFi_Port(9100), "1");
  EXPECT_EQ(session.WiFi_StaticIP("10.0.0.7", "255.255.255.0", "10.0.0.1"), "1");
  EXPECT_EQ(rig.timeline->script(),
            "write \"WLAN DEFAULT\\r\\n\" | write \"\\x1B!R\" | "
            "write \"WLAN SSID \"shop floor\"\\r\\n\" | write \"WLAN WPA \"s3cret\"\\r\\n\" | "
            "write \"WLAN WEP 1,\"ABCDE\"\\r\\n\" | write \"WLAN WEP 2,\"K\"\\r\\n\" | "
            "write \"WLAN DHCP\\r\\n\" | write \"WLAN PORT 9100\\r\\n\" | "
            "write \"WLAN IP \"10.0.0.7\", \"255.255.255.0\", \"10.0.0.1\"\\r\\n\"");
}

TEST(DeviceConfiguration, BatteryReportIsCutToItsValue) {
  TcpRig tcp(kTenth, answering(batteryReplies("{SMBVOLTAGE|8123}\r\n")));
  auto& [rig, session, printer] = tcp;
  EXPECT_EQ(session.smartbattery_status(1), "8123");
  EXPECT_EQ(textOf(printer.received()),
            "DIAGNOSTIC INTERFACE NET\r\n\r\nDIAGNOSTIC REPORT SMBVOLTAGE\r\n\r\n");
  EXPECT_EQ(rig.timeline->pauses().front(), 1.0);
}

TEST(DeviceConfiguration, OnTheAccessoryLinkTheInterfaceIsCom) {
  Rig rig(kTenth);
  rig.accessories->setResponder(answering({{"DIAGNOSTIC INTERFACE COM\r\n\r\n", "{INTERFACE|COM}\r\n"},
                                           {"SMBSOH\r\n\r\n", "{SMBSOH|97}\r\n"}}));
  TestSession session(rig.platform());
  openAccessory(session, rig);
  EXPECT_EQ(session.smartbattery_status(8), "97");
}

TEST(DeviceConfiguration, BatteryReportsThatCannotBeCutRaise) {
  for (const std::string& reply : {std::string("8123\r\n"), std::string("{SMBVOLTAGE 8123}\r\n"),
                                   std::string("}x|"), std::string("\xFF")}) {
    TcpRig tcp(kTenth, answering(batteryReplies(reply)));
    auto& [rig, session, printer] = tcp;
    EXPECT_THROW(session.smartbattery_status(1), std::out_of_range) << reply;
  }
  // An unknown selector raises once the interface line has gone out.
  TcpRig tcp(kTenth, answering(batteryReplies("")));
  auto& [rig, session, printer] = tcp;
  EXPECT_THROW(session.smartbattery_status(9), std::out_of_range);
  EXPECT_EQ(textOf(printer.received()), "DIAGNOSTIC INTERFACE NET\r\n\r\n");
}

TEST(DeviceConfiguration, RfidCommandsAndTheReadBack) {
  Rig rig(kTenth);
  TestSession session(rig.platform());
  EXPECT_EQ(session.rfidDetect(), -1);
  // The printer answers an empty line with the tag data read last.
  LoopbackPrinter printer(answering({{"\r\n\r\n", "E2003412\r\n"}}));
  openTcp(session, rig, printer);
  EXPECT_EQ(session.rfidDetect(), 1);
  EXPECT_EQ(session.rfidRead("UHF", "H", 2, 6, 1), 1);
  EXPECT_EQ(session.rfidWrite("UHF", "H", 2, 6, 1, "3034F4"), 1);
  EXPECT_EQ(session.rfidGetReadData(), "E2003412\r\n");
  EXPECT_EQ(textOf(printer.received()),
            "RFIDDETECT\r\nRFID READ, UHF, H, 2, 6, 1, \"\"\r\n"
            "RFID WRITE, UHF, H, 2, 6, 1, \"3034F4\"\r\n\r\n");
}
