// What every request passes before its route: the bearer token on /v1/,
// and a check that a browser's request comes from this service's own page
// (a page elsewhere must not print through a service on the loopback),
// then errors of httplib's own (no route, body too large) as JSON.

#include <nlohmann/json.hpp>

#include "requests.hpp"
#include "responses.hpp"
#include "routes.hpp"

namespace orvante::serve {
namespace {

std::string defaultReason(int status) {
  switch (status) {
    case 400:
      return "the request is malformed";
    case 404:
      return "no such path";
    case 405:
      return "that method is not served here";
    case 413:
      return "the body is larger than the service takes";
    case 414:
      return "the request's path is too long";
    default:
      return "the request failed (HTTP " + std::to_string(status) + ")";
  }
}

// Names by which a browser on this computer reaches a loopback service.
bool loopbackHost(std::string_view host) {
  if (!host.empty() && host.front() == '[') {
    const auto close = host.find(']');
    return close != std::string_view::npos && isLoopback(host.substr(1, close - 1));
  }
  return isLoopback(host.substr(0, host.find(':')));
}

}  // namespace

void addGuards(httplib::Server& server, Context& context) {
  server.set_pre_routing_handler([&context](const httplib::Request& request,
                                            httplib::Response& response) {
    const std::string host = request.get_header_value("Host");
    const std::string origin = request.get_header_value("Origin");
    // A browser sends Origin with every POST: it must be this page's.
    if (!origin.empty() && origin != "http://" + host) {
      answerError(response, 403, "requests from other sites' pages are refused");
      return httplib::Server::HandlerResponse::Handled;
    }
    // Without a token the service serves this computer only: a name that
    // a foreign site makes resolve to the loopback is refused too.
    if (context.options.token.empty() && !host.empty() && !loopbackHost(host)) {
      answerError(response, 403, "this service answers requests to the loopback only");
      return httplib::Server::HandlerResponse::Handled;
    }
    if (!context.options.token.empty() && request.path.rfind("/v1/", 0) == 0 &&
        !bearerMatches(request.get_header_value("Authorization"), context.options.token)) {
      response.set_header("WWW-Authenticate", "Bearer");
      answerError(response, 401, "this service needs \"Authorization: Bearer TOKEN\"");
      return httplib::Server::HandlerResponse::Handled;
    }
    return httplib::Server::HandlerResponse::Unhandled;
  });
  server.set_error_handler([](const httplib::Request&, httplib::Response& response) {
    if (response.body.empty()) answerError(response, response.status, defaultReason(response.status));
  });
}

}  // namespace orvante::serve
