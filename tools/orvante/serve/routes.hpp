#pragma once
// The service's routes on an httplib server, and what they share.

#include <memory>

#include "job_queue.hpp"
#include "printer_status.hpp"
#include "render_gate.hpp"
#include "service.hpp"

namespace httplib {
class Server;
}

namespace orvante::serve {

struct Context {
  ServiceOptions options;
  int port = 0;
  std::unique_ptr<JobQueue> jobs;
  std::unique_ptr<StatusAsker> statuses;
  std::unique_ptr<RenderGate> renderers;
};

// Token and origin checks before routing, errors as JSON after.
void addGuards(httplib::Server& server, Context& context);
void addPreviewRoutes(httplib::Server& server, Context& context);
void addPrinterRoutes(httplib::Server& server, Context& context);

}  // namespace orvante::serve
