#include "failure_report.hpp"

#include <cxxabi.h>

#include <cstdlib>
#include <string>
#include <typeinfo>

#include <orvante/exception.hpp>
#include <orvante/log.hpp>

namespace orvante {
namespace {

std::string typeName(const std::exception& failure) {
  int status = 0;
  char* readable = abi::__cxa_demangle(typeid(failure).name(), nullptr, nullptr, &status);
  std::string name = status == 0 && readable ? readable : typeid(failure).name();
  std::free(readable);
  return name;
}

}  // namespace

std::int64_t reportFailure(const std::exception& failure) {
  if (const auto* named = dynamic_cast<const Exception*>(&failure)) {
    log("Name: " + named->name());
    log("Reason: " + named->reason());
  } else {
    log("Name: " + typeName(failure));
    log(std::string("Reason: ") + failure.what());
  }
  return -1;
}

}  // namespace orvante
