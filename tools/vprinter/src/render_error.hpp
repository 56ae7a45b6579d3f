#pragma once
// A command that cannot be carried out as given: the journal shows it as
// a warning with this reason and the printer goes on.

#include <stdexcept>

namespace orvante::vprinter {

class CommandWarning : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace orvante::vprinter
