#pragma once
// The configured printers' status, asked of all of them at once within a
// short time limit: a page listing printers is never slower than that,
// whatever printer is away or silent.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace orvante::serve {

struct NamedPrinter {
  std::string name;
  std::string uri;
};

struct PrinterReport {
  std::string name;
  std::string uri;
  std::optional<std::uint8_t> byte;  // none when it did not answer
  std::string words;                 // "ready", "out of paper", "unreachable (why)"
};

class StatusAsker {
 public:
  explicit StatusAsker(std::chrono::milliseconds limit) : limit_(limit) {}
  // Waits for the questions still out (each ends within its own limit).
  ~StatusAsker();
  StatusAsker(const StatusAsker&) = delete;
  StatusAsker& operator=(const StatusAsker&) = delete;

  // Each printer's report, in order, within the limit.
  std::vector<PrinterReport> ask(const std::vector<NamedPrinter>& printers);

 private:
  std::chrono::milliseconds limit_;
  std::mutex mutex_;
  std::condition_variable idle_;
  int running_ = 0;  // threads still asking
};

}  // namespace orvante::serve
