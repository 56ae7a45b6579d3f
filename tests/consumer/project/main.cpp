// A program outside the tree that uses the installed library.
#include <orvante/orvante.hpp>

#include <cstdio>

int main() {
  orvante::setLogSink([](std::string_view) {});
  ORVANTESDK session;
  if (session.stream_status() != -1) return 1;
  std::printf("%s\n", reinterpret_cast<const char*>(ORVANTESDKVersionString));
  return 0;
}
