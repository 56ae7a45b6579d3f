#pragma once
// A named exception: the connection guard raises "NoConnectionException";
// an image too large to draw fails as "ImageTooLarge".

#include <stdexcept>
#include <string>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

class Exception : public std::runtime_error {
 public:
  Exception(std::string name, std::string reason)
      : std::runtime_error(name + ": " + reason),
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
