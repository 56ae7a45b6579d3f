#pragma once
// orvante::Printer: a connection to one printer, for applications and
// tools. Unlike the session it never pauses on purpose, every wait has a
// time limit, and every failure is an orvante::Error that says what went
// wrong. Calls from several threads are serialised on the connection;
// close(), move-assignment and destruction may come from any thread at any
// time: a call in progress on another thread then fails at once with an
// Error saying that the connection was closed.
//
//   auto printer = orvante::Printer::open("tcp://192.168.1.50");
//   printer.print(label);
//   std::cout << printer.name() << ": " << printer.status().describe() << '\n';

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <orvante/bytes.hpp>
#include <orvante/error.hpp>
#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

class Label;

// The printer's status byte and what it says.
struct PrinterStatus {
  std::uint8_t byte = 0;

  bool ready() const { return byte == 0; }
  bool headOpen() const { return byte & 0x01; }
  bool paperJam() const { return byte & 0x02; }
  bool outOfPaper() const { return byte & 0x04; }
  bool outOfRibbon() const { return byte & 0x08; }
  bool paused() const { return byte & 0x10; }
  bool printing() const { return byte & 0x20; }
  bool otherError() const { return byte & 0x80; }
  // "ready", or the conditions in words: "head open, out of paper".
  std::string describe() const;
};

class Printer {
 public:
  using Timeout = std::chrono::milliseconds;
  // Bytes sent so far out of the total of one send.
  using Progress = std::function<void(std::size_t sent, std::size_t total)>;

  // Connects to "tcp://host[:port]" (port 9100 when absent; IPv6 addresses
  // in brackets), "ble://ADDRESS" (a BLE printer's device address, as BlueZ
  // reports it: scanned for until the timeout), "serial:///dev/ttyUSB0?baud=115200"
  // (a tty set raw, 8N1, 9600 baud when absent), "usb:///dev/usb/lp0" or
  // "bt://AA:BB:CC:DD:EE:FF" (a printer paired over the Bluetooth serial port
  // profile). Throws Error when the printer refuses, cannot be reached, its
  // device is missing or not permitted, or it does not answer within the
  // timeout.
  static Printer open(std::string_view uri, Timeout timeout = std::chrono::seconds(5));

  Printer(Printer&&) noexcept;
  Printer& operator=(Printer&&) noexcept;
  ~Printer();

  // Every byte is written, or Error is thrown: the printer closed or reset
  // the connection, or took no byte for the stall timeout (30 s).
  void send(ByteView bytes);
  void send(std::string_view text);
  void print(const Label& label);
  // Sends the bytes, then asks the printer's status: the printer works
  // through its input in order, so its answer confirms that it took every
  // byte before. Returns the status it answered (a label confirmed while it
  // reports a fault, such as out of paper, may not have printed). Error
  // when the bytes cannot be sent or no answer comes within the timeout.
  PrinterStatus sendConfirmed(ByteView bytes, Timeout timeout = std::chrono::seconds(30));
  PrinterStatus printConfirmed(const Label& label, Timeout timeout = std::chrono::seconds(30));
  void onProgress(Progress progress);
  void setStallTimeout(Timeout timeout);

  // Queries: one request, one reply, within the timeout or Error.
  std::string name(Timeout timeout = std::chrono::seconds(2));
  std::string codePage(Timeout timeout = std::chrono::seconds(2));
  // The printed distance in km.
  double mileage(Timeout timeout = std::chrono::seconds(2));
  std::uint64_t freeMemory(Timeout timeout = std::chrono::seconds(2));
  std::vector<std::string> files(Timeout timeout = std::chrono::seconds(2));
  PrinterStatus status(Timeout timeout = std::chrono::seconds(2));
  // Any other request: the reply up to `end`, which is left out.
  std::string query(std::string_view request, std::string_view end,
                    Timeout timeout = std::chrono::seconds(2));

  bool isOpen() const;
  // Any thread, any time; again does nothing.
  void close();

 private:
  struct Connection;
  explicit Printer(std::shared_ptr<Connection> connection);
  std::shared_ptr<Connection> connection() const;
  std::shared_ptr<Connection> take();
  mutable std::mutex mutex_;  // guards connection_ alone, never held while waiting
  std::shared_ptr<Connection> connection_;
};

}  // namespace orvante

ORVANTE_API_END
