// Device configuration: the printer's wireless network, its smart-battery
// diagnostics and its RFID encoder, all built over the raw commands and
// the query of a command's reply.

#include <stdexcept>

#include <orvante/commands.hpp>
#include "../commands/text_encoding.hpp"
#include "internals.hpp"
#include "session_ops.hpp"

namespace commands = orvante::commands;
using V = orvante::Value;
// The session places its arguments as they stand.
constexpr auto kAsGiven = commands::Placement::AsGiven;

namespace {

// The wireless commands report "1" whatever happened.
const std::string kDone = "1";

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
  sendcommand(std::string(commands::kWifiDefaultLine));
  sendcommandWithData(orvante::viewOf("\x1B!R"));
  return kDone;
}

std::string ORVANTESDK::WiFi_SSID(const std::string& ssid) {
  sendcommand(commands::wifiSsidLine(ssid, kAsGiven));
  return kDone;
}

std::string ORVANTESDK::WiFi_WPA(const std::string& passphrase) {
  sendcommand(commands::wifiWpaLine(passphrase, kAsGiven));
  return kDone;
}

std::string ORVANTESDK::WiFi_WEP(std::int64_t keyIndex, const std::string& key) {
  sendcommand(commands::wifiWepLine(static_cast<std::int32_t>(keyIndex), key, kAsGiven));
  return kDone;
}

std::string ORVANTESDK::WiFi_DHCP() {
  sendcommand(std::string(commands::kWifiDhcpLine));
  return kDone;
}

std::string ORVANTESDK::WiFi_Port(std::int64_t port) {
  sendcommand(commands::wifiPortLine(static_cast<std::int32_t>(port), kAsGiven));
  return kDone;
}

std::string ORVANTESDK::WiFi_StaticIP(const std::string& address, const std::string& mask,
                                      const std::string& gateway) {
  sendcommand(commands::wifiStaticIpLine(address, mask, gateway, kAsGiven));
  return kDone;
}

std::string ORVANTESDK::smartbattery_status(std::int64_t selector) {
  const auto link = SessionOps::currentLink(*this);
  if (link == Link::Tcp) {
    sendcommand_getstring(commands::interfaceLine("NET"));
  } else if (link == Link::Accessory) {
    sendcommand_getstring(commands::interfaceLine("COM"));
  }
  std::optional<std::string> text = std::string();
  if (selector >= 0 && selector <= 8)
    text = asciiReply(sendcommand_getstring(std::string(commands::batteryReportLine(selector))));
  // A reply that is no text (no link, the error marker) cannot be cut either.
  return cutReport(text.value_or(std::string()));
}

std::int64_t ORVANTESDK::rfidRead(const V& tagType, const V& format, const V& startBlock,
                                  const V& readDataSize, const V& memoryBank) {
  return sendcommand(
      commands::rfidReadLine(tagType, format, startBlock, readDataSize, memoryBank, kAsGiven));
}

std::int64_t ORVANTESDK::rfidWrite(const V& tagType, const V& format, const V& startBlock,
                                   const V& readDataSize, const V& memoryBank, const V& data) {
  return sendcommand(commands::rfidWriteLine(tagType, format, startBlock, readDataSize, memoryBank,
                                             data, kAsGiven));
}

std::int64_t ORVANTESDK::rfidDetect() {
  return sendcommand(std::string(commands::kRfidDetectLine));
}

std::optional<std::string> ORVANTESDK::rfidGetReadData() {
  return asciiReply(sendcommand_getstring(""));
}
