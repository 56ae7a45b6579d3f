#pragma once
// The virtual printer's engine: it takes the bytes a label printer takes,
// keeps the label and printer state, renders printed labels, answers the
// printer's queries and journals every command. It does no I/O of its own;
// front ends feed it bytes and send its replies back.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <orvante/bytes.hpp>
#include <orvante/vprinter/printed_label.hpp>

namespace orvante::vprinter {

// Each connection keeps its own parse state; all share the printer.
using ConnectionId = std::uint32_t;

struct Options {
  int dpi = 203;  // 203 (8 dots per mm) or 300 (12 dots per mm)
  std::string name = "ORVANTE VP-1";
  std::uint8_t status = 0x00;
  std::string codePage = "437";
  std::size_t memoryBytes = 6 * 1024 * 1024;  // room for stored files

  // Limits that keep hostile input from taking the host's memory.
  std::size_t maxLineBytes = 32 * 1024;
  int maxLabelWidthDots = 2400;
  int maxLabelHeightDots = 12000;
  int maxCopiesPerPrint = 1000;
  // The most a BITMAP or DOWNLOAD payload may claim. A larger claim is
  // refused: journaled, its bytes skipped as they come, and the connection
  // goes on. (A bitmap must also fit the largest label, a file the free
  // memory, a packet's raster the largest label.) A payload's buffer grows
  // with the bytes that have come, never by its claim, and a connection is
  // inside one payload at a time: this is also the most one connection
  // holds, besides one line of maxLineBytes.
  std::size_t maxPayloadBytes = 8 * 1024 * 1024;
  // The most that the unfinished payloads and packets of all connections
  // hold together. The one whose bytes would pass it is dropped: its
  // bytes so far freed, the rest skipped as they come, and journaled when
  // it ends; the others go on.
  std::size_t maxHeldPayloadBytes = 64 * 1024 * 1024;

  // Takes each printed label and says where it went (a PNG path) for the
  // journal. Without it, labels wait for Engine::takePrinted().
  std::function<std::string(const PrintedLabel&)> onPrinted;
  // Receives each journal line (one JSON object, no line end).
  std::function<void(std::string_view)> onJournal;
  // The journal's clock; the system clock when empty.
  std::function<std::chrono::system_clock::time_point()> clock;
};

class Engine {
 public:
  explicit Engine(Options options = {});
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Takes bytes from a connection in any split; returns the replies they
  // caused, to be sent back on the same connection.
  Bytes feed(ConnectionId connection, ByteView bytes);
  // The connection is gone: a payload it left unfinished is journaled and
  // dropped, and its parse state forgotten.
  void disconnect(ConnectionId connection);
  // Whether the connection is inside a payload or packet whose bytes have
  // not all come (a front end may close one that stays silent there).
  bool insidePayload(ConnectionId connection) const;
  // Journals the front end's warning about a connection, such as why it
  // closed it, as a line of its own with no command.
  void warn(ConnectionId connection, std::string_view reason);

  // Labels printed since the last call (only when Options::onPrinted is empty).
  std::vector<PrintedLabel> takePrinted();

  // The status byte that ESC !? reports (faults, set by the front end).
  void setStatus(std::uint8_t status);
  std::uint8_t status() const;

  const Options& options() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvante::vprinter
