// An application's own test of its printing code, with orvante::testing:
// a printer on the loopback interface receives the label.
#include <orvante/label.hpp>
#include <orvante/printer.hpp>
#include <orvante/testing/loopback_printer.hpp>

#include <cstdio>

int main() {
  orvante::testing::LoopbackPrinter printer;
  orvante::Label label;
  label.size(50, 30).clear().text(10, 10, "3", "consumer").print();
  auto connection = orvante::Printer::open("tcp://127.0.0.1:" + std::to_string(printer.port()));
  connection.print(label);
  if (!printer.waitForBytes(label.bytes().size()) || printer.received() != label.bytes()) return 1;
  std::printf("printed %zu bytes\n", label.bytes().size());
  return 0;
}
