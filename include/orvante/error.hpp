#pragma once
// The one error of the second door (orvante::Label, orvante::Printer and the
// tools on them): why a printer could not be reached or did not do what was
// asked, in words. A bad argument is std::invalid_argument.

#include <stdexcept>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace orvante

ORVANTE_API_END
