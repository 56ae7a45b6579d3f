// Commands about the printer rather than the label: diagnostics and the
// battery report, the RFID encoder, wireless settings and stored files.

#include "commands.hpp"
#include "render_error.hpp"

namespace orvante::vprinter {

namespace {

constexpr std::string_view kLineEnd = "\r\n";

// The first word of a field and the rest, as in "REPORT SMBLIFE".
std::pair<std::string, std::string> wordAndRest(std::string_view field) {
  field = trimmed(field);
  const std::size_t blank = field.find_first_of(" \t");
  if (blank == std::string_view::npos) return {upperCase(field), ""};
  return {upperCase(field.substr(0, blank)), std::string(trimmed(field.substr(blank)))};
}


void answer(Printer& printer, JournalEntry& entry, const std::string& text) {
  printer.reply(text);
  entry.notes.emplace_back("reply", text);
}

// DIAGNOSTIC INTERFACE NET|COM and DIAGNOSTIC REPORT SMB...: both answer
// {NAME|VALUE} and a line end.
void diagnostic(Printer& printer, const CommandLine& command, JournalEntry& entry) {
  const auto [what, rest] = wordAndRest(printer.arguments(command).text(0, "diagnostic"));
  const std::string value = upperCase(rest);
  if (what == "INTERFACE") {
    if (value != "NET" && value != "COM" && value != "USB" && value != "BT") {
      throw CommandWarning("unknown interface \"" + rest + "\"");
    }
    printer.diagnosticInterface = value;
    answer(printer, entry, "{INTERFACE|" + value + "}" + std::string(kLineEnd));
    return;
  }
  if (what == "REPORT") {
    const auto reported = printer.battery.report(value);
    if (!reported) throw CommandWarning("no report \"" + rest + "\"");
    answer(printer, entry, "{" + value + "|" + *reported + "}" + std::string(kLineEnd));
    return;
  }
  throw CommandWarning("unknown DIAGNOSTIC \"" + what + "\"");
}

void rfidDetect(Printer& printer, const CommandLine&, JournalEntry& entry) {
  printer.tagData = printer.tag.detect();
  printer.tagAnswerDue = true;
  entry.notes.emplace_back("tag", printer.tagData);
}

// RFID READ|WRITE, TYPE, FORMAT, START, SIZE, BANK, "DATA"
void rfid(Printer& printer, const CommandLine& command, JournalEntry& entry) {
  const Arguments args = printer.arguments(command);
  const std::string operation = upperCase(trimmed(args.text(0, "operation")));
  if (operation != "READ" && operation != "WRITE") {
    throw CommandWarning("unknown RFID operation \"" + operation + "\"");
  }
  args.text(1, "tag type");
  const int format = args.integer(2, "format", 0, 9);
  const int start = args.integer(3, "start block", 0, 4096);
  const int size = args.integer(4, "size", 0, 4096);
  const int bank = args.integer(5, "memory bank", 0, 3);
  if (operation == "READ") {
    printer.tagData = printer.tag.read(bank, start, size, format);
    entry.notes.emplace_back("tag", printer.tagData);
  } else {
    printer.tag.write(bank, start, args.text(6, "data"), format);
  }
  printer.tagAnswerDue = true;
}

// WLAN SSID "x" / WPA "x" / WEP N,"x" / DHCP / PORT N / IP "a","m","g" / DEFAULT
void wlan(Printer& printer, const CommandLine& command, JournalEntry& entry) {
  // The setting word leads a line of its own values, quoted ones included.
  const CommandLine values = CommandLine::parse(command.rest);
  const std::string& setting = values.keyword;
  const Arguments args = printer.arguments(values);
  if (setting.empty()) throw CommandWarning("WLAN needs a setting");
  if (setting == "DEFAULT") {
    printer.wlan.clear();
    return;
  }
  if (setting == "DHCP") {
    printer.wlan["ADDRESSING"] = "DHCP";
    return;
  }
  static const std::map<std::string, std::size_t, std::less<>> kFields{
      {"SSID", 1}, {"WPA", 1}, {"WEP", 2}, {"PORT", 1}, {"IP", 3}};
  const auto fields = kFields.find(setting);
  if (fields == kFields.end()) throw CommandWarning("unknown WLAN setting \"" + setting + "\"");
  if (values.arguments.empty()) throw CommandWarning("WLAN " + setting + " needs a value");
  std::string value = args.text(0, "value");
  for (std::size_t i = 1; i < fields->second; ++i) value += "," + args.text(i, "value");
  if (setting == "PORT" && value.find_first_not_of("0123456789") != std::string::npos) {
    throw CommandWarning("port is not a number: \"" + value + "\"");
  }
  printer.wlan[setting] = value;
  entry.notes.emplace_back(setting, value);
  if (setting == "IP") printer.wlan["ADDRESSING"] = "STATIC";
}

// KILL "NAME" deletes a stored file; KILL "*" all of them.
void kill(Printer& printer, const CommandLine& command, JournalEntry&) {
  const std::string& name = printer.arguments(command).text(0, "file name");
  if (name == "*") {
    for (const auto& [stored, bytes] : printer.files) printer.fonts.forget(stored);
    printer.files.clear();
    return;
  }
  if (printer.files.erase(name) == 0) throw CommandWarning("no file \"" + name + "\"");
  printer.fonts.forget(name);
}

}  // namespace

void emptyLine(Printer& printer, JournalEntry& entry) {
  if (!printer.tagAnswerDue) return;
  printer.tagAnswerDue = false;
  answer(printer, entry, printer.tagData + std::string(kLineEnd));
}

void addDeviceCommands(CommandTable& table) {
  table.emplace("DIAGNOSTIC", diagnostic);
  table.emplace("RFIDDETECT", rfidDetect);
  table.emplace("RFID", rfid);
  table.emplace("WLAN", wlan);
  table.emplace("KILL", kill);
}

}  // namespace orvante::vprinter
