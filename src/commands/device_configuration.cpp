// Device configuration: the printer's wireless network, its smart-battery
// diagnostics and its RFID encoder, all built over the raw commands and
// the query of a command's reply.

#include <stdexcept>

#include "../session/internals.hpp"
#include "../session/link.hpp"
#include "command_text.hpp"
#include "text_encoding.hpp"

using orvante::fill;
using V = orvante::Value;

namespace {

// The wireless commands report "1" whatever happened.
const std::string kDone = "1";

const char* const kBatteryReports[] = {
    "DIAGNOSTIC REPORT SMBSERIAL\r\n",       "DIAGNOSTIC REPORT SMBVOLTAGE\r\n",
    "DIAGNOSTIC REPORT SMBREMCAPCITY\r\n",   "DIAGNOSTIC REPORT SMBTEMPERATURE\r\n",
    "DIAGNOSTIC REPORT SMBDISCYCLE\r\n",     "DIAGNOSTIC REPORT SMBMANUDATE\r\n",
    "DIAGNOSTIC REPORT SMBREPLACECOUNT\r\n", "DIAGNOSTIC REPORT SMBLIFE\r\n",
    "DIAGNOSTIC REPORT SMBSOH\r\n",
};

std::optional<std::string> asciiReply(const std::optional<orvante::Bytes>& reply) {
  if (!reply) return std::nullopt;
  return orvante::decodeAscii(*reply);
}

// A report reads "{FIELD|VALUE}": the value is what lies after the first
// "|" and before the first "}". Anything else cannot be cut.
std::string cutReport(const std::string& text) {
  const auto close = text.find('}');
  const auto bar = text.find('|');
  if (close == std::string::npos || bar == std::string::npos) {
    throw std::out_of_range("the battery report has no {FIELD|VALUE} form");
  }
  return text.substr(0, close).substr(bar + 1);
}

}  // namespace

std::string ORVANTESDK::WiFi_Default() {
  sendcommand("WLAN DEFAULT\r\n");
  sendcommandWithData(orvante::viewOf("\x1B!R"));
  return kDone;
}

std::string ORVANTESDK::WiFi_SSID(const std::string& ssid) {
  sendcommand(fill("WLAN SSID \"%@\"\r\n", {ssid}));
  return kDone;
}

std::string ORVANTESDK::WiFi_WPA(const std::string& passphrase) {
  sendcommand(fill("WLAN WPA \"%@\"\r\n", {passphrase}));
  return kDone;
}

std::string ORVANTESDK::WiFi_WEP(std::int64_t keyIndex, const std::string& key) {
  sendcommand(fill("WLAN WEP %@,\"%@\"\r\n", {static_cast<std::int32_t>(keyIndex), key}));
  return kDone;
}

std::string ORVANTESDK::WiFi_DHCP() {
  sendcommand("WLAN DHCP\r\n");
  return kDone;
}

std::string ORVANTESDK::WiFi_Port(std::int64_t port) {
  sendcommand(fill("WLAN PORT %@\r\n", {static_cast<std::int32_t>(port)}));
  return kDone;
}

std::string ORVANTESDK::WiFi_StaticIP(const std::string& address, const std::string& mask,
                                      const std::string& gateway) {
  sendcommand(fill("WLAN IP \"%@\", \"%@\", \"%@\"\r\n", {address, mask, gateway}));
  return kDone;
}

std::string ORVANTESDK::smartbattery_status(std::int64_t selector) {
  const auto link = currentLink();
  if (link == Link::Tcp) {
    sendcommand_getstring("DIAGNOSTIC INTERFACE NET\r\n");
  } else if (link == Link::Accessory) {
    sendcommand_getstring("DIAGNOSTIC INTERFACE COM\r\n");
  }
  std::optional<std::string> text = std::string();
  if (selector >= 0 && selector <= 8)
    text = asciiReply(sendcommand_getstring(kBatteryReports[selector]));
  // A reply that is no text (no link, the error marker) cannot be cut either.
  return cutReport(text.value_or(std::string()));
}

std::int64_t ORVANTESDK::rfidRead(const V& tagType, const V& format, const V& startBlock,
                                  const V& readDataSize, const V& memoryBank) {
  return sendcommand(fill("RFID READ, %@, %@, %@, %@, %@, \"\"\r\n",
                          {tagType, format, startBlock, readDataSize, memoryBank}));
}

std::int64_t ORVANTESDK::rfidWrite(const V& tagType, const V& format, const V& startBlock,
                                   const V& readDataSize, const V& memoryBank, const V& data) {
  return sendcommand(fill("RFID WRITE, %@, %@, %@, %@, %@, \"%@\"\r\n",
                          {tagType, format, startBlock, readDataSize, memoryBank, data}));
}

std::int64_t ORVANTESDK::rfidDetect() {
  return sendcommand("RFIDDETECT\r\n");
}

std::optional<std::string> ORVANTESDK::rfidGetReadData() {
  return asciiReply(sendcommand_getstring(""));
}
