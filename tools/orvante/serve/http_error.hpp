#pragma once
// A request the service refuses: the HTTP status and the reason, which
// goes back as {"error": reason}.

#include <stdexcept>
#include <string>

namespace orvante::serve {

class HttpError : public std::runtime_error {
 public:
  HttpError(int status, const std::string& reason) : std::runtime_error(reason), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

}  // namespace orvante::serve
