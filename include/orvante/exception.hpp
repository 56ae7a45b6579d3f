#pragma once
// A named exception: the connection guard raises "NoConnectionException";
// an image too large to draw fails as "ImageTooLarge". It is an
// orvante::Error, so the second door has one root for its failures.

#include <string>

#include <orvante/error.hpp>
#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

class Exception : public Error {
 public:
  Exception(std::string name, std::string reason)
      : Error(name + ": " + reason),
        name_(std::move(name)),
        reason_(std::move(reason)) {}

  const std::string& name() const noexcept { return name_; }
  const std::string& reason() const noexcept { return reason_; }

 private:
  std::string name_;
  std::string reason_;
};

}  // namespace orvante

ORVANTE_API_END
