// One thread per printer asks its status; the request waits for them no
// longer than the limit and reports the silent ones as unreachable. A
// thread past the limit finishes on its own (its connection and query
// have time limits too) and only touches what it shares with the asker.

#include "printer_status.hpp"

#include <memory>
#include <thread>

#include <orvante/printer.hpp>

namespace orvante::serve {
namespace {

struct Answers {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::optional<PrinterReport>> reports;
};

PrinterReport askOne(const NamedPrinter& printer, std::chrono::steady_clock::time_point deadline) {
  PrinterReport report{printer.name, printer.uri, std::nullopt, {}};
  try {
    using std::chrono::milliseconds;
    const auto left = [&] {
      return std::max(milliseconds(1),
                      std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now()));
    };
    Printer connection = Printer::open(printer.uri, left());
    const PrinterStatus status = connection.status(left());
    report.byte = status.byte;
    report.words = status.describe();
  } catch (const std::exception& failure) {
    report.words = std::string("unreachable (") + failure.what() + ")";
  }
  return report;
}

}  // namespace

StatusAsker::~StatusAsker() {
  std::unique_lock lock(mutex_);
  idle_.wait(lock, [&] { return running_ == 0; });
}

std::vector<PrinterReport> StatusAsker::ask(const std::vector<NamedPrinter>& printers) {
  const auto deadline = std::chrono::steady_clock::now() + limit_;
  auto answers = std::make_shared<Answers>();
  answers->reports.resize(printers.size());
  for (std::size_t i = 0; i < printers.size(); ++i) {
    {
      std::lock_guard lock(mutex_);
      ++running_;
    }
    std::thread([this, answers, i, printer = printers[i], deadline] {
      PrinterReport report = askOne(printer, deadline);
      {
        std::lock_guard lock(answers->mutex);
        answers->reports[i] = std::move(report);
      }
      answers->changed.notify_all();
      std::lock_guard lock(mutex_);
      if (--running_ == 0) idle_.notify_all();
    }).detach();
  }
  std::vector<PrinterReport> out;
  std::unique_lock lock(answers->mutex);
  // A little past the limit, for the threads whose own limit just ran out.
  answers->changed.wait_until(lock, deadline + std::chrono::milliseconds(50), [&] {
    for (const auto& report : answers->reports) {
      if (!report) return false;
    }
    return true;
  });
  for (std::size_t i = 0; i < printers.size(); ++i) {
    if (answers->reports[i]) {
      out.push_back(*answers->reports[i]);
    } else {
      out.push_back({printers[i].name, printers[i].uri, std::nullopt,
                     "unreachable (no answer within " + std::to_string(limit_.count()) + " ms)"});
    }
  }
  return out;
}

}  // namespace orvante::serve
