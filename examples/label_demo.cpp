// Prints a label through the library to a printer that lives in this
// process: a loopback listener that records what it receives. The demo
// shows every byte the printer got.

#include <cstdio>
#include <string>

#include <orvante/orvante.hpp>

#include "transport/fakes/loopback_printer.hpp"

namespace {

std::string visible(const orvante::Bytes& bytes) {
  std::string text;
  for (auto byte : bytes) {
    if (byte == '\r') {
      text += "\\r";
    } else if (byte == '\n') {
      text += "\\n\n";
    } else if (byte >= 0x20 && byte < 0x7F) {
      text += static_cast<char>(byte);
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X", byte);
      text += hex;
    }
  }
  return text;
}

}  // namespace

int main() {
  orvante::setLogSink([](std::string_view) {});
  orvante::fakes::LoopbackPrinter printer;
  std::printf("printer listening on 127.0.0.1:%d\n", printer.port());

  ORVANTESDK session;
  if (session.openport_ethernet("127.0.0.1", printer.port()) != 1) {
    std::fprintf(stderr, "could not open the link\n");
    return 1;
  }
  const std::string label =
      "SIZE 40 mm, 30 mm\r\nGAP 2 mm,0 mm\r\nCLS\r\n"
      "TEXT 20, 20, \"3\", 0, 1, 1, \"orvante\"\r\nPRINT 1,1\r\n";
  session._printWithStream(nullptr, orvante::viewOf(label));
  session.closeport();

  auto connection = printer.connection();
  if (!connection || !connection->waitForBytes(label.size())) {
    std::fprintf(stderr, "the printer did not receive the label\n");
    return 1;
  }
  std::printf("the printer received %zu bytes:\n%s", connection->receivedCount(),
              visible(connection->received()).c_str());
  return 0;
}
