// Prints a label through the library to a printer that lives in this
// process: a loopback listener that records what it receives. The demo
// shows every byte the printer got.

#include <cstdio>
#include <string>

#include <orvante/orvante.hpp>

#include "transport/fakes/loopback_printer.hpp"
#include "transport/fakes/recording.hpp"

namespace {

// The bytes as text, CR and LF escaped, one command line per line.
std::string visible(const orvante::Bytes& bytes) {
  std::string text;
  for (char c : orvante::fakes::escaped(bytes)) {
    text += c;
    if (text.ends_with("\\n")) text += '\n';
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
  // A 50 x 30 mm shipping label: media, a heading, a barcode, one copy.
  session.setup(50, 30, 4, 8, 0, 2, 0);
  session.clearbuffer();
  session.printerfont(24, 24, "3", 0, 1, 1, "ORVANTE DEMO");
  session.barcode(24, 80, "128", 80, 1, 0, 2, 2, "SHIP-000421");
  session.printlabel(1, 1);
  session.closeport();

  auto connection = printer.connection();
  // closeport ends the connection once everything went out.
  if (!connection || !connection->waitForHangUp()) {
    std::fprintf(stderr, "the printer did not receive the label\n");
    return 1;
  }
  std::printf("the printer received %zu bytes:\n%s", connection->receivedCount(),
              visible(connection->received()).c_str());
  return 0;
}
