// orvante send, query, download, wifi and battery: the printer's own
// commands from the shell.

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <sstream>

#include <orvante/commands.hpp>
#include <orvante/label.hpp>

#include "cli.hpp"

namespace orvante::cli {
namespace {

namespace commands = orvante::commands;

Bytes readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

std::chrono::milliseconds timeoutOf(const Options& options) {
  return std::chrono::milliseconds(options.timeoutMs);
}

// The battery reports by the names the tool gives them, in selector order.
const char* const kReports[] = {"serial",       "voltage",      "capacity", "temperature", "cycles",
                                "manufactured", "replacements", "life",     "health"};

void addSend(CLI::App& app, const Options& options) {
  auto* send = app.add_subcommand("send", "send printer commands: a line, or a file as it is");
  auto line = std::make_shared<std::string>();
  auto file = std::make_shared<std::string>();
  send->add_option("command", *line,
                   "a command line (CR LF is added), or a file of commands sent byte for byte");
  send->add_option("-f,--file", *file, "a file of commands or data, sent byte for byte");
  send->callback([=, &options] {
    if (line->empty() == file->empty()) {
      throw CLI::ValidationError("send", "give either a command line or --file");
    }
    // A file named where a line belongs is sent, not its name.
    std::error_code noFile;
    if (std::filesystem::is_regular_file(*line, noFile)) std::swap(*line, *file);
    auto printer = openPrinter(options);
    showProgress(printer);
    if (!file->empty())
      printer.send(readFile(*file));
    else
      printer.print(Label().raw(*line));
  });
}

void addQuery(CLI::App& app, const Options& options) {
  auto* query = app.add_subcommand(
      "query", "ask the printer: name, codepage, mileage, memory, files or status");
  auto what = std::make_shared<std::string>();
  query->add_option("what", *what, "name, codepage, mileage, memory, files or status")
      ->required()
      ->check(CLI::IsMember({"name", "codepage", "mileage", "memory", "files", "status"}));
  query->callback([=, &options] {
    auto printer = openPrinter(options);
    const auto timeout = timeoutOf(options);
    if (*what == "name") std::cout << printer.name(timeout) << '\n';
    if (*what == "codepage") std::cout << printer.codePage(timeout) << '\n';
    if (*what == "mileage") std::cout << printer.mileage(timeout) << " km\n";
    if (*what == "memory") std::cout << printer.freeMemory(timeout) << " bytes free\n";
    if (*what == "files") {
      for (const auto& name : printer.files(timeout)) std::cout << name << '\n';
    }
    if (*what == "status") {
      const auto status = printer.status(timeout);
      std::cout << status.describe() << " (0x" << std::hex << std::setw(2) << std::setfill('0')
                << int(status.byte) << ")\n";
    }
  });
}

void addDownload(CLI::App& app, const Options& options) {
  auto* download =
      app.add_subcommand("download", "store a file (font, image, program) in the printer");
  auto path = std::make_shared<std::string>();
  auto name = std::make_shared<std::string>();
  download->add_option("file", *path, "the file to store")->required();
  download->add_option("--as", *name, "the name in the printer (default: the file's name)");
  download->callback([=, &options] {
    const Bytes data = readFile(*path);
    const std::string stored =
        name->empty() ? std::filesystem::path(*path).filename().string() : *name;
    auto printer = openPrinter(options);
    showProgress(printer);
    printer.print(Label().download(stored, data));
  });
}

void addWifi(CLI::App& app, const Options& options) {
  auto* wifi = app.add_subcommand("wifi", "set the printer's wireless network");
  struct Settings {
    std::string ssid, wpa, wep, ip;
    int port = 0;
    bool dhcp = false, reset = false;
  };
  auto settings = std::make_shared<Settings>();
  wifi->add_option("--ssid", settings->ssid, "the network's name");
  wifi->add_option("--wpa", settings->wpa, "the WPA passphrase");
  wifi->add_option("--wep", settings->wep, "a WEP key as INDEX:KEY");
  wifi->add_flag("--dhcp", settings->dhcp, "take the address by DHCP");
  wifi->add_option("--ip", settings->ip, "a fixed address as ADDRESS,MASK,GATEWAY");
  wifi->add_option("--port", settings->port, "the printer's TCP port")->check(CLI::Range(1, 65535));
  wifi->add_flag("--default", settings->reset, "back to the factory settings");
  wifi->callback([=, &options] {
    std::string lines;
    if (settings->reset) lines += commands::kWifiDefaultLine;
    if (!settings->ssid.empty()) lines += commands::wifiSsidLine(settings->ssid);
    if (!settings->wpa.empty()) lines += commands::wifiWpaLine(settings->wpa);
    if (!settings->wep.empty()) {
      const auto colon = settings->wep.find(':');
      if (colon == std::string::npos) throw CLI::ValidationError("--wep", "give INDEX:KEY");
      lines += commands::wifiWepLine(std::stoi(settings->wep.substr(0, colon)),
                                     settings->wep.substr(colon + 1));
    }
    if (settings->dhcp) lines += commands::kWifiDhcpLine;
    if (!settings->ip.empty()) {
      std::stringstream parts(settings->ip);
      std::string address, mask, gateway;
      std::getline(parts, address, ',');
      std::getline(parts, mask, ',');
      std::getline(parts, gateway);
      if (gateway.empty()) throw CLI::ValidationError("--ip", "give ADDRESS,MASK,GATEWAY");
      lines += commands::wifiStaticIpLine(address, mask, gateway);
    }
    if (settings->port) lines += commands::wifiPortLine(settings->port);
    if (lines.empty())
      throw CLI::ValidationError("wifi", "nothing to set (see orvante wifi --help)");
    openPrinter(options).send(lines);
  });
}

void addBattery(CLI::App& app, const Options& options) {
  auto* battery = app.add_subcommand("battery", "read the printer's battery reports");
  auto wanted = std::make_shared<std::vector<std::string>>();
  battery
      ->add_option("report", *wanted,
                   "serial, voltage, capacity, temperature, cycles, manufactured, "
                   "replacements, life or health (default: all)")
      ->check(CLI::IsMember(std::vector<std::string>(std::begin(kReports), std::end(kReports))));
  battery->callback([=, &options] {
    auto printer = openPrinter(options);
    const auto timeout = timeoutOf(options);
    printer.query(commands::interfaceLine("NET"), "\r\n", timeout);
    for (int selector = 0; selector < 9; ++selector) {
      const std::string name = kReports[selector];
      if (!wanted->empty() && std::find(wanted->begin(), wanted->end(), name) == wanted->end())
        continue;
      // A report reads {FIELD|VALUE}.
      const std::string reply =
          printer.query(commands::batteryReportLine(selector), "\r\n", timeout);
      const auto bar = reply.find('|');
      const auto close = reply.find('}');
      if (bar == std::string::npos || close == std::string::npos || close < bar) {
        throw Error("the battery report \"" + reply + "\" has no {FIELD|VALUE} form");
      }
      std::cout << name << ": " << reply.substr(bar + 1, close - bar - 1) << '\n';
    }
  });
}

}  // namespace

void addPrinterCommands(CLI::App& app, const Options& options) {
  addSend(app, options);
  addQuery(app, options);
  addDownload(app, options);
  addWifi(app, options);
  addBattery(app, options);
}

}  // namespace orvante::cli
