#pragma once
// Internal: how an imaging operation reports an exception it caught.

#include <cstdint>
#include <exception>

namespace orvante {

// Logs "Name: <name>" then "Reason: <reason>" and gives -1. A named
// orvante::Exception gives its own name and reason; any other exception
// its type and message.
std::int64_t reportFailure(const std::exception& failure);

}  // namespace orvante
