#pragma once
// Shared pieces of the orvante command-line tool: the printer options,
// opening the printer, progress on standard error.

#include <CLI/CLI.hpp>

#include <string>

#include <orvante/printer.hpp>

namespace orvante::cli {

struct Options {
  std::string printer = "tcp://127.0.0.1:9100";
  int timeoutMs = 5000;
};

// Opens the printer of --printer (or ORVANTE_PRINTER); orvante::Error when
// it cannot be reached.
Printer openPrinter(const Options& options);

// A progress bar on standard error for sends of this size or more, when
// standard error is a terminal.
void showProgress(Printer& printer, std::size_t from = 64 * 1024);

// The subcommands.
void addLabelCommands(CLI::App& app, const Options& options);
void addPrinterCommands(CLI::App& app, const Options& options);
void addScanCommand(CLI::App& app);
void addBatchCommand(CLI::App& app, const Options& options);
void addServeCommand(CLI::App& app);

}  // namespace orvante::cli
