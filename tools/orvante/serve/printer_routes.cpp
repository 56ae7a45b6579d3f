// GET /v1/printers, POST /v1/printers/NAME/jobs, GET /v1/jobs/ID.

#include <charconv>

#include <nlohmann/json.hpp>

#include "requests.hpp"
#include "responses.hpp"
#include "routes.hpp"

namespace orvante::serve {
namespace {

using nlohmann::json;

json statusOf(const PrinterReport& report) {
  return {{"byte", report.byte ? json(*report.byte) : json(nullptr)}, {"words", report.words}};
}

// The job's state as the service names it: a job stopped by the service's
// own end goes on at its next start, so it is still queued.
std::string stateOf(const Job& job) {
  return job.state == JobState::Stopped ? "queued" : std::string(nameOf(job.state));
}

}  // namespace

void addPrinterRoutes(httplib::Server& server, Context& context) {
  server.Get("/v1/printers", guarded([&context](const httplib::Request&, httplib::Response& response) {
    json list = json::array();
    for (const PrinterReport& report : context.statuses->ask(context.options.printers)) {
      list.push_back({{"name", report.name}, {"uri", report.uri}, {"status", statusOf(report)}});
    }
    response.set_content(jsonText(list), "application/json");
  }));

  server.Post(R"(/v1/printers/([^/]+)/jobs)",
              guarded([&context](const httplib::Request& request, httplib::Response& response) {
                const std::string name = request.matches[1];
                if (!context.jobs->hasPrinter(name)) {
                  throw HttpError(404, "the service has no printer named \"" + name + "\"");
                }
                const bool templated =
                    request.get_header_value("Content-Type").rfind("application/json", 0) == 0;
                std::int64_t id = 0;
                if (templated) {
                  id = context.jobs->addTemplate(name, request.body);
                } else {
                  if (request.body.empty()) throw HttpError(400, "the body holds no printer commands");
                  id = context.jobs->addCommands(name, request.body);
                }
                response.status = 202;
                response.set_header("Location", "/v1/jobs/" + std::to_string(id));
                response.set_content(jsonText({{"id", id}}), "application/json");
              }));

  server.Get(R"(/v1/jobs/(\d+))", guarded([&context](const httplib::Request& request,
                                                     httplib::Response& response) {
    const std::string text = request.matches[1];
    std::int64_t id = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    const auto job = error == std::errc() ? context.jobs->job(id) : std::nullopt;
    if (!job) throw HttpError(404, "no job " + text.substr(0, 24));
    response.set_content(jsonText({{"id", job->id},
                                   {"printer", job->printer},
                                   {"state", stateOf(*job)},
                                   {"printed", job->printed},
                                   {"total", job->total},
                                   {"reason", job->reason}}),
                         "application/json");
  }));
}

}  // namespace orvante::serve
