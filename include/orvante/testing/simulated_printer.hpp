#pragma once
// A printer simulated in this process, reached as sim://NAME without
// sockets or devices: it records every byte it gets and answers the
// printer's queries (name, code page, mileage, free memory, files, status).
//
//   orvante::testing::SimulatedPrinter printer("shop");
//   auto connection = orvante::Printer::open(printer.uri());
//   connection.print(label);
//   printer.waitForBytes(label.bytes().size());   // printer.received() holds them

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include <orvante/bytes.hpp>
#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante::testing {

class SimulatedPrinter {
 public:
  // Throws std::invalid_argument when another simulated printer has the name.
  explicit SimulatedPrinter(std::string name = "printer");
  ~SimulatedPrinter();
  SimulatedPrinter(const SimulatedPrinter&) = delete;
  SimulatedPrinter& operator=(const SimulatedPrinter&) = delete;

  // "sim://NAME", for orvante::Printer::open.
  std::string uri() const;

  // Every byte received, from every connection, in order of arrival.
  Bytes received() const;
  bool waitForBytes(std::size_t count,
                    std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;

  // What the queries answer: the status byte of ESC !? (0 ready; 0x04 out
  // of paper...) and the name of ~!T.
  void setStatus(std::uint8_t status);
  void setName(std::string name);
  // While false the printer takes no bytes: sends wait, as on a stalled link.
  void setTakesBytes(bool takes);
  // Every open connection ends, as when the printer closes them.
  void hangUp();

 private:
  struct End;
  std::string name_;
  std::shared_ptr<End> end_;
  std::shared_ptr<void> attachment_;
};

}  // namespace orvante::testing

ORVANTE_API_END
