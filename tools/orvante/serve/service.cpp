// The service: an httplib server over a pool of connection threads, the
// routes, the job queue and the status asker, in the order they must
// start and stop.

#include "service.hpp"

#include <httplib.h>

#include <thread>

#include <orvante/error.hpp>

#include "page.hpp"
#include "requests.hpp"
#include "routes.hpp"

namespace orvante::serve {

struct Service::State {
  Context context;
  httplib::Server server;
  std::thread serving;
};

Service::Service(ServiceOptions options) : state_(std::make_unique<State>()) {
  if (options.token.empty() && !isLoopback(options.host)) {
    throw std::invalid_argument("listening on " + options.host +
                                " reaches beyond this computer: give a --token, or listen on "
                                "127.0.0.1");
  }
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  if (options.renderers == 0) options.renderers = cores;
  // Keep-alive clients hold a thread each between requests; drawing, the
  // CPU's work, is held to `renderers` at once.
  if (options.connections == 0) options.connections = std::max(16u, 8 * cores);

  Context& context = state_->context;
  context.options = std::move(options);
  context.renderers = std::make_unique<RenderGate>(context.options.renderers);
  context.statuses = std::make_unique<StatusAsker>(context.options.statusLimit);
  context.jobs = std::make_unique<JobQueue>(context.options.state, context.options.printers,
                                            context.options.delivery);

  httplib::Server& server = state_->server;
  const unsigned connections = context.options.connections;
  server.new_task_queue = [connections] { return new httplib::ThreadPool(connections); };
  server.set_payload_max_length(context.options.maxBody);
  server.set_keep_alive_max_count(1000);
  server.set_keep_alive_timeout(5);
  server.set_read_timeout(std::chrono::seconds(5));
  server.set_write_timeout(std::chrono::seconds(5));
  server.set_tcp_nodelay(true);
  server.set_default_headers({{"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}});
  addGuards(server, context);
  addPreviewRoutes(server, context);
  addPrinterRoutes(server, context);
  server.Get("/", [](const httplib::Request&, httplib::Response& response) {
    response.set_header("Content-Security-Policy",
                        "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
                        "img-src blob:; connect-src 'self'");
    const std::string_view page = pageHtml();
    response.set_content(page.data(), page.size(), "text/html; charset=utf-8");
  });

  const std::string& host = context.options.host;
  if (context.options.port == 0) {
    context.port = server.bind_to_any_port(host);
  } else if (server.bind_to_port(host, context.options.port)) {
    context.port = context.options.port;
  } else {
    context.port = -1;
  }
  if (context.port < 0) {
    throw Error("cannot listen on " + host + ":" + std::to_string(context.options.port) +
                " (in use, or not an address of this computer)");
  }
}

Service::~Service() {
  stop();
  if (state_->serving.joinable()) state_->serving.join();
  // The workers stop before the store they write closes.
  state_->context.jobs.reset();
  state_->context.statuses.reset();
}

int Service::port() const { return state_->context.port; }

void Service::run() { state_->server.listen_after_bind(); }

void Service::start() {
  state_->serving = std::thread([this] { run(); });
  // Running before it returns, so that a stop() right after is not lost.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!state_->server.is_running() && std::chrono::steady_clock::now() < limit) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void Service::stop() { state_->server.stop(); }

}  // namespace orvante::serve
