#pragma once
// Answers the routes share: JSON, errors as {"error": why}, and handlers
// that turn whatever they throw into such an error.

#include <httplib.h>

#include <nlohmann/json.hpp>
#include <string>

#include "http_error.hpp"

namespace orvante::serve {

// JSON text; bytes that are not UTF-8 (from a request) become U+FFFD.
inline std::string jsonText(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

inline void answerError(httplib::Response& response, int status, const std::string& why) {
  response.status = status;
  response.set_content(jsonText({{"error", why}}), "application/json");
}

template <typename Handle>
httplib::Server::Handler guarded(Handle handle) {
  return [handle](const httplib::Request& request, httplib::Response& response) {
    try {
      handle(request, response);
    } catch (const HttpError& refused) {
      answerError(response, refused.status(), refused.what());
    } catch (const std::bad_alloc&) {
      answerError(response, 503, "the service is out of memory for this request");
    } catch (const std::exception& failure) {
      answerError(response, 500, failure.what());
    }
  };
}

}  // namespace orvante::serve
