#pragma once
// The printer's command lines, each written once: the session, orvante::Label
// and the tools build their bytes here. Text lines end in CR LF; the
// arguments take their text form (a string as it is, a number in its
// shortest decimal form). The lines are UTF-8 text; the session sends most
// of them in Big5-HKSCS, which is the same bytes for ASCII.
//
// Values from people (a name, an address, a spreadsheet cell) are safe in
// these lines as they are placed by default, Checked:
// - text between double quotes (a text's content, a barcode's code, Wi-Fi
//   values, RFID data) prints as given: each double quote is sent as the
//   language's escape \["]. Text no quoted field can carry is refused: the
//   control characters (CR, LF, NUL, ESC, tab, 0x01 to 0x1F, 0x7F) and "~!",
//   which the printer runs as a command wherever it stands;
// - names (a printer font, a barcode type, a stored file) hold only letters,
//   digits, '.', '_' and '-';
// - values without quotes (numbers, RFID codes) hold only letters, digits,
//   '.', '+' and '-'.
// A refused value throws std::invalid_argument naming the argument and the
// position of the first character that cannot go. AsGiven places every
// value exactly as it stands, as the published session does: never for
// text that comes from users.

#include <string>
#include <string_view>

#include <orvante/export.hpp>
#include <orvante/value.hpp>

ORVANTE_API_BEGIN

namespace orvante::commands {

enum class Placement { Checked, AsGiven };

// --- Label layout and print --------------------------------------------------
std::string sizeLine(const Value& widthMm, const Value& heightMm,
                     Placement placement = Placement::Checked);
std::string speedLine(const Value& speed, Placement placement = Placement::Checked);
std::string densityLine(const Value& density, Placement placement = Placement::Checked);
// GAP, or BLINE when sensing black marks.
std::string mediaLine(bool blackMark, const Value& distanceMm, const Value& offsetMm,
                      Placement placement = Placement::Checked);
// Size, speed, density and media in one go, as setup sends them.
std::string setupLines(const Value& width, const Value& height, const Value& speed,
                       const Value& density, const Value& sensor, const Value& vertical,
                       const Value& offset, Placement placement = Placement::Checked);
inline constexpr std::string_view kClearLine = "CLS\r\n";
std::string barcodeLine(const Value& x, const Value& y, const Value& type, const Value& height,
                        const Value& readable, const Value& rotation, const Value& narrow,
                        const Value& wide, const Value& code,
                        Placement placement = Placement::Checked);
std::string textLine(const Value& x, const Value& y, const Value& font, const Value& rotation,
                     const Value& xMultiplier, const Value& yMultiplier, const Value& content,
                     Placement placement = Placement::Checked);
// Wrapped text: the content set in lines that fit WIDTH dots, as many as
// fit HEIGHT dots, SPACING dots apart; alignment 1 left, 2 centre, 3 right.
std::string textBlockLine(const Value& x, const Value& y, const Value& width, const Value& height,
                          const Value& font, const Value& rotation, const Value& xMultiplier,
                          const Value& yMultiplier, const Value& spacing, const Value& alignment,
                          const Value& content, Placement placement = Placement::Checked);
// A QR code in automatic mode: error correction L, M, Q or H; the cell
// (module) width in dots.
std::string qrCodeLine(const Value& x, const Value& y, const Value& errorCorrection,
                       const Value& cell, const Value& rotation, const Value& data,
                       Placement placement = Placement::Checked);
// Shapes in dots. BAR fills its rectangle (a line is a thin bar); REVERSE
// inverts it and ERASE clears it. BOX draws its outline inside the corners
// (rounded by the radius when it is not 0); CIRCLE its ring inside the
// square of the diameter whose top left is x, y.
std::string barLine(const Value& x, const Value& y, const Value& width, const Value& height,
                    Placement placement = Placement::Checked);
std::string boxLine(const Value& x, const Value& y, const Value& xEnd, const Value& yEnd,
                    const Value& thickness, const Value& radius = 0,
                    Placement placement = Placement::Checked);
std::string reverseLine(const Value& x, const Value& y, const Value& width, const Value& height,
                        Placement placement = Placement::Checked);
std::string eraseLine(const Value& x, const Value& y, const Value& width, const Value& height,
                      Placement placement = Placement::Checked);
std::string circleLine(const Value& x, const Value& y, const Value& diameter,
                       const Value& thickness, Placement placement = Placement::Checked);
std::string printLine(const Value& sets, const Value& copies,
                      Placement placement = Placement::Checked);
inline constexpr std::string_view kFormFeedLine = "FORMFEED\r\n";
inline constexpr std::string_view kTearOffLine = "SET TEAR OFF\r\n";
inline constexpr std::string_view kTearOnLine = "SET TEAR ON\r\n";

// --- Queries, answered at once without a line end ------------------------------
inline constexpr std::string_view kNameQuery = "~!T";
inline constexpr std::string_view kCodePageQuery = "~!I";
inline constexpr std::string_view kMileageQuery = "~!@";
inline constexpr std::string_view kFreeMemoryQuery = "~!A";
inline constexpr std::string_view kFilesQuery = "~!F";
inline constexpr std::string_view kStatusQuery = "\x1B!?";

// --- Device configuration ------------------------------------------------------
inline constexpr std::string_view kWifiDefaultLine = "WLAN DEFAULT\r\n";
inline constexpr std::string_view kWifiDhcpLine = "WLAN DHCP\r\n";
std::string wifiSsidLine(const Value& ssid, Placement placement = Placement::Checked);
std::string wifiWpaLine(const Value& passphrase, Placement placement = Placement::Checked);
std::string wifiWepLine(const Value& keyIndex, const Value& key,
                        Placement placement = Placement::Checked);
std::string wifiPortLine(const Value& port, Placement placement = Placement::Checked);
std::string wifiStaticIpLine(const Value& address, const Value& mask, const Value& gateway,
                             Placement placement = Placement::Checked);
// The interface the battery reports answer on: NET or COM.
std::string interfaceLine(std::string_view interface);
// The battery report lines by selector 0 to 8 (serial number, voltage,
// remaining capacity, temperature, discharge cycles, manufacture date,
// replacement count, life, state of health); empty for other selectors.
std::string_view batteryReportLine(long long selector);
std::string rfidReadLine(const Value& tagType, const Value& format, const Value& startBlock,
                         const Value& size, const Value& memoryBank,
                         Placement placement = Placement::Checked);
std::string rfidWriteLine(const Value& tagType, const Value& format, const Value& startBlock,
                          const Value& size, const Value& memoryBank, const Value& data,
                          Placement placement = Placement::Checked);
inline constexpr std::string_view kRfidDetectLine = "RFIDDETECT\r\n";

// --- Downloads -------------------------------------------------------------------
// The header before a file's bytes; the bytes are followed by CR LF.
std::string downloadHeader(std::string_view name, std::size_t size,
                           Placement placement = Placement::Checked);

}  // namespace orvante::commands

ORVANTE_API_END
