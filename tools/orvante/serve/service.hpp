#pragma once
// orvante serve: previews of printer commands and templates, the
// configured printers and their print jobs, and a web page, over HTTP.
//
//   POST /v1/preview[?dpi=203|300&index=N]   commands -> PNG (or PDF of all)
//   POST /v1/preview/template                {"template", "record"} -> PNG
//   GET  /v1/printers                        [{"name", "uri", "status"}]
//   POST /v1/printers/NAME/jobs              commands, or {"template", "records"} -> 202 {"id"}
//   GET  /v1/jobs/ID                         {"state", "printed", "total", "reason"}
//   GET  /                                   the web page
//
// Errors are {"error": "..."} with their status. The service listens on
// the loopback unless given a token: with one, every /v1/ request needs
// "Authorization: Bearer TOKEN".

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <orvante/delivery.hpp>

#include "preview.hpp"
#include "printer_status.hpp"

namespace orvante::serve {

struct ServiceOptions {
  std::string host = "127.0.0.1";
  int port = 8080;  // 0: any free port
  std::vector<NamedPrinter> printers;
  std::string token;
  std::filesystem::path state;  // the job store; empty: jobs in memory only
  std::size_t maxBody = 1024 * 1024;
  PreviewLimits preview;
  std::chrono::milliseconds statusLimit{500};
  DeliveryOptions delivery{std::chrono::seconds(5), std::chrono::seconds(30),
                           std::chrono::milliseconds(250), std::chrono::seconds(10),
                           std::chrono::milliseconds::zero()};
  // Previews drawn at once (CPU-bound): the cores, unless told.
  unsigned renderers = 0;
  // Connections served at once (each waits on its client between requests).
  unsigned connections = 0;
};

class Service {
 public:
  // Opens the job store, starts the printers' workers and binds the
  // address. std::invalid_argument for options that are refused (an
  // address beyond the loopback without a token); Error when the address
  // cannot be bound or the store cannot be opened.
  explicit Service(ServiceOptions options);
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  int port() const;
  // Serves until stop(), on this thread.
  void run();
  // Serves on a thread of its own (tests); the destructor stops it.
  void start();
  // Any thread.
  void stop();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace orvante::serve
