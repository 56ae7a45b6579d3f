#include <orvante/commands.hpp>

#include "command_text.hpp"

namespace orvante::commands {

namespace {
constexpr auto Text = FieldKind::Text;
constexpr auto Name = FieldKind::Name;
}  // namespace

std::string sizeLine(const Value& widthMm, const Value& heightMm, Placement placement) {
  return fill("SIZE %@ mm, %@ mm\r\n", {{"the width", widthMm}, {"the height", heightMm}},
              placement);
}

std::string speedLine(const Value& speed, Placement placement) {
  return fill("SPEED %@\r\n", {{"the speed", speed}}, placement);
}

std::string densityLine(const Value& density, Placement placement) {
  return fill("DENSITY %@\r\n", {{"the density", density}}, placement);
}

std::string mediaLine(bool blackMark, const Value& distanceMm, const Value& offsetMm,
                      Placement placement) {
  return fill("%@ %@ mm,%@ mm\r\n",
              {{"the sensing", blackMark ? "BLINE" : "GAP"},
               {"the distance", distanceMm},
               {"the offset", offsetMm}},
              placement);
}

std::string setupLines(const Value& width, const Value& height, const Value& speed,
                       const Value& density, const Value& sensor, const Value& vertical,
                       const Value& offset, Placement placement) {
  return sizeLine(width, height, placement) + speedLine(speed, placement) +
         densityLine(density, placement) +
         mediaLine(sensor.boolValue(), vertical, offset, placement);
}

std::string barcodeLine(const Value& x, const Value& y, const Value& type, const Value& height,
                        const Value& readable, const Value& rotation, const Value& narrow,
                        const Value& wide, const Value& code, Placement placement) {
  return fill("BARCODE %@, %@, \"%@\", %@, %@, %@, %@, %@, \"%@\"\r\n",
              {{"x", x},
               {"y", y},
               {"the barcode type", type, Name},
               {"the height", height},
               {"readable", readable},
               {"the rotation", rotation},
               {"the narrow bar width", narrow},
               {"the wide bar width", wide},
               {"the code", code, Text}},
              placement);
}

std::string textLine(const Value& x, const Value& y, const Value& font, const Value& rotation,
                     const Value& xMultiplier, const Value& yMultiplier, const Value& content,
                     Placement placement) {
  return fill("TEXT %@, %@, \"%@\", %@, %@, %@, \"%@\"\r\n",
              {{"x", x},
               {"y", y},
               {"the font", font, Name},
               {"the rotation", rotation},
               {"the x multiplier", xMultiplier},
               {"the y multiplier", yMultiplier},
               {"the content", content, Text}},
              placement);
}

std::string textBlockLine(const Value& x, const Value& y, const Value& width, const Value& height,
                          const Value& font, const Value& rotation, const Value& xMultiplier,
                          const Value& yMultiplier, const Value& spacing, const Value& alignment,
                          const Value& content, Placement placement) {
  return fill("BLOCK %@,%@,%@,%@,\"%@\",%@,%@,%@,%@,%@,\"%@\"\r\n",
              {{"x", x},
               {"y", y},
               {"the width", width},
               {"the height", height},
               {"the font", font, Name},
               {"the rotation", rotation},
               {"the x multiplier", xMultiplier},
               {"the y multiplier", yMultiplier},
               {"the line spacing", spacing},
               {"the alignment", alignment},
               {"the content", content, Text}},
              placement);
}

std::string qrCodeLine(const Value& x, const Value& y, const Value& errorCorrection,
                       const Value& cell, const Value& rotation, const Value& data,
                       Placement placement) {
  return fill("QRCODE %@,%@,%@,%@,A,%@,\"%@\"\r\n",
              {{"x", x},
               {"y", y},
               {"the error correction", errorCorrection},
               {"the cell width", cell},
               {"the rotation", rotation},
               {"the data", data, Text}},
              placement);
}

namespace {

// BAR, REVERSE and ERASE: a rectangle by its corner and size.
std::string rectangleLine(std::string_view command, const Value& x, const Value& y,
                          const Value& width, const Value& height, Placement placement) {
  return std::string(command) +
         fill(" %@,%@,%@,%@\r\n",
              {{"x", x}, {"y", y}, {"the width", width}, {"the height", height}}, placement);
}

}  // namespace

std::string barLine(const Value& x, const Value& y, const Value& width, const Value& height,
                    Placement placement) {
  return rectangleLine("BAR", x, y, width, height, placement);
}

std::string reverseLine(const Value& x, const Value& y, const Value& width, const Value& height,
                        Placement placement) {
  return rectangleLine("REVERSE", x, y, width, height, placement);
}

std::string eraseLine(const Value& x, const Value& y, const Value& width, const Value& height,
                      Placement placement) {
  return rectangleLine("ERASE", x, y, width, height, placement);
}

std::string boxLine(const Value& x, const Value& y, const Value& xEnd, const Value& yEnd,
                    const Value& thickness, const Value& radius, Placement placement) {
  const std::string corners =
      fill("BOX %@,%@,%@,%@,%@",
           {{"x", x}, {"y", y}, {"x end", xEnd}, {"y end", yEnd}, {"the thickness", thickness}},
           placement);
  // Square corners leave the radius out, as the printer's default.
  if (radius.description() == "0") return corners + "\r\n";
  return corners + fill(",%@\r\n", {{"the radius", radius}}, placement);
}

std::string circleLine(const Value& x, const Value& y, const Value& diameter,
                       const Value& thickness, Placement placement) {
  return fill("CIRCLE %@,%@,%@,%@\r\n",
              {{"x", x}, {"y", y}, {"the diameter", diameter}, {"the thickness", thickness}},
              placement);
}

std::string printLine(const Value& sets, const Value& copies, Placement placement) {
  return fill("PRINT %@,%@\r\n", {{"the sets", sets}, {"the copies", copies}}, placement);
}

std::string wifiSsidLine(const Value& ssid, Placement placement) {
  return fill("WLAN SSID \"%@\"\r\n", {{"the network name", ssid, Text}}, placement);
}

std::string wifiWpaLine(const Value& passphrase, Placement placement) {
  return fill("WLAN WPA \"%@\"\r\n", {{"the passphrase", passphrase, Text}}, placement);
}

std::string wifiWepLine(const Value& keyIndex, const Value& key, Placement placement) {
  return fill("WLAN WEP %@,\"%@\"\r\n", {{"the key index", keyIndex}, {"the key", key, Text}},
              placement);
}

std::string wifiPortLine(const Value& port, Placement placement) {
  return fill("WLAN PORT %@\r\n", {{"the port", port}}, placement);
}

std::string wifiStaticIpLine(const Value& address, const Value& mask, const Value& gateway,
                             Placement placement) {
  return fill(
      "WLAN IP \"%@\", \"%@\", \"%@\"\r\n",
      {{"the address", address, Text}, {"the mask", mask, Text}, {"the gateway", gateway, Text}},
      placement);
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
                         const Value& size, const Value& memoryBank, Placement placement) {
  return fill("RFID READ, %@, %@, %@, %@, %@, \"\"\r\n",
              {{"the tag type", tagType},
               {"the format", format},
               {"the start block", startBlock},
               {"the size", size},
               {"the memory bank", memoryBank}},
              placement);
}

std::string rfidWriteLine(const Value& tagType, const Value& format, const Value& startBlock,
                          const Value& size, const Value& memoryBank, const Value& data,
                          Placement placement) {
  return fill("RFID WRITE, %@, %@, %@, %@, %@, \"%@\"\r\n",
              {{"the tag type", tagType},
               {"the format", format},
               {"the start block", startBlock},
               {"the size", size},
               {"the memory bank", memoryBank},
               {"the data", data, Text}},
              placement);
}

std::string downloadHeader(std::string_view name, std::size_t size, Placement placement) {
  return fill("DOWNLOAD F,\"%@\",%@,", {{"the file name", name, Name}, {"the size", size}},
              placement);
}

}  // namespace orvante::commands
