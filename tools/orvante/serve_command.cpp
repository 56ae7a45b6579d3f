// orvante serve: the web service (serve/service.hpp) until SIGINT or
// SIGTERM. A refused address or option is a usage error, exit status 2.

#include <malloc.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <thread>

#include "cli.hpp"
#include "serve/requests.hpp"
#include "serve/service.hpp"

namespace orvante::cli {
namespace {

struct ServeSettings {
  std::string listen = "127.0.0.1:8080";
  std::string portFile;
  std::vector<std::string> printers;
  std::string token;
  std::string state;
  std::size_t maxBody = 1024 * 1024;
};

void runService(const ServeSettings& settings) {
  serve::ServiceOptions options;
  try {
    const serve::ListenAddress address = serve::parseListen(settings.listen);
    options.host = address.host;
    options.port = address.port;
    for (const std::string& printer : settings.printers) {
      auto [name, uri] = serve::parsePrinterOption(printer);
      for (const auto& other : options.printers) {
        if (other.name == name) throw std::invalid_argument("two printers are named " + name);
      }
      options.printers.push_back({std::move(name), std::move(uri)});
    }
  } catch (const std::invalid_argument& refused) {
    throw CLI::ValidationError(refused.what());
  }
  // Each preview allocates and frees a label's buffers (about 1 MB for a
  // 4 x 6 in label): kept in the heap rather than handed back to the
  // system each time, they cost no page faults the next time. Measured
  // by bench/serve_preview.sh: about half again as many previews a second.
  mallopt(M_MMAP_THRESHOLD, 16 * 1024 * 1024);
  mallopt(M_TRIM_THRESHOLD, 64 * 1024 * 1024);
  options.token = settings.token;
  options.state = settings.state;
  options.maxBody = settings.maxBody;

  // The signals wait for a thread of their own, blocked everywhere else
  // (the service's threads inherit the mask).
  sigset_t stopping;
  sigemptyset(&stopping);
  sigaddset(&stopping, SIGINT);
  sigaddset(&stopping, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopping, nullptr);

  std::unique_ptr<serve::Service> service;
  try {
    service = std::make_unique<serve::Service>(std::move(options));
  } catch (const std::invalid_argument& refused) {
    throw CLI::ValidationError(refused.what());
  }
  if (!settings.portFile.empty()) {
    const std::string temporary = settings.portFile + ".part";
    std::ofstream(temporary) << service->port() << '\n';
    std::filesystem::rename(temporary, settings.portFile);
  }
  std::cout << "listening on http://" << serve::parseListen(settings.listen).host << ":"
            << service->port() << "/" << std::endl;
  std::thread waiter([&] {
    int signal = 0;
    sigwait(&stopping, &signal);
    service->stop();
  });
  service->run();
  // run() also ends when the server fails; the waiter then still waits.
  pthread_kill(waiter.native_handle(), SIGTERM);
  waiter.join();
}

}  // namespace

void addServeCommand(CLI::App& app) {
  auto* serve = app.add_subcommand(
      "serve", "a web service: previews of printer commands and templates, printers, print jobs, "
               "and a web page at /");
  auto settings = std::make_shared<ServeSettings>();
  serve->add_option("--listen", settings->listen,
                    "HOST:PORT to listen on (port 0: any free port); beyond the loopback only "
                    "with --token");
  serve->add_option("--port-file", settings->portFile, "write the port listened on to this file");
  serve->add_option("--printer", settings->printers,
                    "NAME=URI of a printer to list and print to (again for more)");
  serve->add_option("--token", settings->token,
                    "every /v1/ request needs \"Authorization: Bearer TOKEN\"");
  serve->add_option("--state", settings->state,
                    "the job store, an SQLite file; jobs go on after a restart (default: in memory)");
  serve->add_option("--max-body", settings->maxBody, "the largest request body taken, in bytes")
      ->check(CLI::PositiveNumber);
  serve->callback([settings] { runService(*settings); });
}

}  // namespace orvante::cli
