// orvante: print labels and talk to label printers from the shell.
// Standard output carries results only; failures are one line on standard
// error and a non-zero exit status.

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include "cli.hpp"

int main(int argc, char** argv) {
  orvante::cli::Options options;
  if (const char* fromEnvironment = std::getenv("ORVANTE_PRINTER")) {
    options.printer = fromEnvironment;
  }
  CLI::App app{"Print labels and talk to label printers.", "orvante"};
  app.require_subcommand(1);
  app.option_defaults()->always_capture_default();
  app.add_option("-p,--printer", options.printer,
                 "the printer: tcp://host[:port], serial:///dev/ttyUSB0?baud=N, usb:///dev/usb/lp0, "
                 "bt://ADDRESS, ble://ADDRESS (also ORVANTE_PRINTER)");
  app.add_option("--timeout", options.timeoutMs, "time limit of connecting and of replies, in ms")
      ->check(CLI::PositiveNumber);
  orvante::cli::addLabelCommands(app, options);
  orvante::cli::addPrinterCommands(app, options);
  orvante::cli::addScanCommand(app);
  orvante::cli::addBatchCommand(app, options);
  orvante::cli::addServeCommand(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    std::cerr << "orvante: " << error.what() << " (see orvante --help)\n";
    return 2;
  } catch (const orvante::Error& error) {
    std::cerr << "orvante: " << error.what() << "\n";
    return 1;
  } catch (const std::exception& error) {
    std::cerr << "orvante: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
