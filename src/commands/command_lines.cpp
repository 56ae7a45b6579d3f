#include <orvante/commands.hpp>

#include "command_text.hpp"

namespace orvante::commands {

std::string sizeLine(const Value& widthMm, const Value& heightMm) {
  return fill("SIZE %@ mm, %@ mm\r\n", {widthMm, heightMm});
}

std::string speedLine(const Value& speed) {
  return fill("SPEED %@\r\n", {speed});
}

std::string densityLine(const Value& density) {
  return fill("DENSITY %@\r\n", {density});
}

std::string mediaLine(bool blackMark, const Value& distanceMm, const Value& offsetMm) {
  return fill("%@ %@ mm,%@ mm\r\n", {blackMark ? "BLINE" : "GAP", distanceMm, offsetMm});
}

std::string setupLines(const Value& width, const Value& height, const Value& speed,
                       const Value& density, const Value& sensor, const Value& vertical,
                       const Value& offset) {
  return sizeLine(width, height) + speedLine(speed) + densityLine(density) +
         mediaLine(sensor.boolValue(), vertical, offset);
}

std::string barcodeLine(const Value& x, const Value& y, const Value& type, const Value& height,
                        const Value& readable, const Value& rotation, const Value& narrow,
                        const Value& wide, const Value& code) {
  return fill("BARCODE %@, %@, \"%@\", %@, %@, %@, %@, %@, \"%@\"\r\n",
              {x, y, type, height, readable, rotation, narrow, wide, code});
}

std::string textLine(const Value& x, const Value& y, const Value& font, const Value& rotation,
                     const Value& xMultiplier, const Value& yMultiplier, const Value& content) {
  return fill("TEXT %@, %@, \"%@\", %@, %@, %@, \"%@\"\r\n",
              {x, y, font, rotation, xMultiplier, yMultiplier, content});
}

std::string printLine(const Value& sets, const Value& copies) {
  return fill("PRINT %@,%@\r\n", {sets, copies});
}

std::string wifiSsidLine(const Value& ssid) {
  return fill("WLAN SSID \"%@\"\r\n", {ssid});
}

std::string wifiWpaLine(const Value& passphrase) {
  return fill("WLAN WPA \"%@\"\r\n", {passphrase});
}

std::string wifiWepLine(const Value& keyIndex, const Value& key) {
  return fill("WLAN WEP %@,\"%@\"\r\n", {keyIndex, key});
}

std::string wifiPortLine(const Value& port) {
  return fill("WLAN PORT %@\r\n", {port});
}

std::string wifiStaticIpLine(const Value& address, const Value& mask, const Value& gateway) {
  return fill("WLAN IP \"%@\", \"%@\", \"%@\"\r\n", {address, mask, gateway});
}

std::string interfaceLine(std::string_view interface) {
  return "DIAGNOSTIC INTERFACE " + std::string(interface) + "\r\n";
}

std::string_view batteryReportLine(long long selector) {
  static constexpr std::string_view kReports[] = {
      "DIAGNOSTIC REPORT SMBSERIAL\r\n",       "DIAGNOSTIC REPORT SMBVOLTAGE\r\n",
      "DIAGNOSTIC REPORT SMBREMCAPCITY\r\n",   "DIAGNOSTIC REPORT SMBTEMPERATURE\r\n",
      "DIAGNOSTIC REPORT SMBDISCYCLE\r\n",     "DIAGNOSTIC REPORT SMBMANUDATE\r\n",
      "DIAGNOSTIC REPORT SMBREPLACECOUNT\r\n", "DIAGNOSTIC REPORT SMBLIFE\r\n",
      "DIAGNOSTIC REPORT SMBSOH\r\n",
  };
  if (selector < 0 || selector > 8) return {};
  return kReports[selector];
}

std::string rfidReadLine(const Value& tagType, const Value& format, const Value& startBlock,
                         const Value& size, const Value& memoryBank) {
  return fill("RFID READ, %@, %@, %@, %@, %@, \"\"\r\n",
              {tagType, format, startBlock, size, memoryBank});
}

std::string rfidWriteLine(const Value& tagType, const Value& format, const Value& startBlock,
                          const Value& size, const Value& memoryBank, const Value& data) {
  return fill("RFID WRITE, %@, %@, %@, %@, %@, \"%@\"\r\n",
              {tagType, format, startBlock, size, memoryBank, data});
}

std::string downloadHeader(std::string_view name, std::size_t size) {
  return "DOWNLOAD F,\"" + std::string(name) + "\"," + std::to_string(size) + ",";
}

}  // namespace orvante::commands
