#pragma once
// A link to a printer: bytes out, bytes in, over a descriptor (TCP, a serial
// line, a USB printer, a Bluetooth serial socket), BLE or the simulator.
//
// Reads and writes run on the caller's thread and never block on the link;
// the waits sleep until an event of the link or their deadline. close() may
// come from any thread at any time: every wait in progress ends at once
// with Closed, and nothing is read or written after it. Events go to the
// listener on the link's own thread (the event loop, the BLE queue), in
// order, one at a time.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include <orvante/bytes.hpp>

#include "link_signal.hpp"

namespace orvante::transport {

using Deadline = std::chrono::steady_clock::time_point;

enum class LinkState {
  Idle,     // not started
  Opening,  // connecting, scanning, discovering
  Open,
  Ended,   // the printer closed its end; what it sent before may still be read
  Failed,  // see failure()
  Closed,  // closed on this side
};

enum class LinkEvent { Opened, Readable, Writable, Ended, Failed };

// How a wait ended.
enum class Wait { Done, Deadline, Failed, Ended, Closed };

class Link : public std::enable_shared_from_this<Link> {
 public:
  using Listener = std::function<void(LinkEvent)>;

  explicit Link(std::string where) : where_(std::move(where)) {}
  virtual ~Link() = default;
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  // How messages name the printer: "127.0.0.1:9100", "/dev/ttyUSB0".
  const std::string& where() const { return where_; }

  // --- Waiting, with deadlines -------------------------------------------------
  // Starts the link if need be and waits until it is open.
  Wait open(Deadline deadline);
  // Waits until the link takes at least one byte; `taken` says how many.
  Wait write(ByteView bytes, Deadline deadline, std::size_t& taken);
  // Writes every byte, each step within `stall` of the last; `progress`
  // hears the count sent so far.
  Wait writeAll(ByteView bytes, std::chrono::milliseconds stall,
                const std::function<void(std::size_t)>& progress, std::size_t& sent);
  // Waits until the link carried every byte written (BLE acknowledges each
  // write; a descriptor has nothing to wait for).
  Wait flush(Deadline deadline);
  // Waits for at least one byte; `got` says how many were read.
  Wait read(std::span<std::uint8_t> buffer, Deadline deadline, std::size_t& got);

  // Any thread, any time, more than once.
  void close();

  // --- Without waiting ------------------------------------------------------------
  // Begins connecting; Opened or Failed follows. Again does nothing.
  void start();
  LinkState state() const;
  // Why the link failed or ended; "the connection was closed" once closed.
  std::string failure() const;
  std::size_t available();
  bool writable();
  // Bytes read (0 when none wait), or -1 when the link can carry no more.
  std::int64_t readSome(std::span<std::uint8_t> buffer);
  // Bytes taken (0 when the link takes none now), or -1.
  std::int64_t writeSome(ByteView bytes);

  // The listener hears every event from now on; replacing or clearing it
  // waits for a delivery in progress on another thread.
  void setListener(Listener listener);

 protected:
  // What each kind of link does. They are called with no lock held.
  virtual void doStart() = 0;
  // Bytes read, 0 when none wait now. The end of the input is reported by
  // ended(), a failure by failed(); both then return 0.
  virtual std::size_t doRead(std::span<std::uint8_t> buffer) = 0;
  // Bytes taken, 0 when none can go now; a failure calls failed().
  virtual std::size_t doWrite(ByteView bytes) = 0;
  virtual std::size_t doAvailable() = 0;
  virtual bool doWritable() = 0;
  virtual bool doFlushed() { return true; }
  // Releases what the link holds; called once, from close() on any thread
  // or from the destructor of the kind of link.
  virtual void doClose() = 0;

  // Reports from the kinds of link; each wakes the waits and tells the
  // listener. Only the first of failed() and ended() counts.
  void opened();
  void failed(const std::string& why);
  void ended(const std::string& why = "the printer closed the connection");
  void readable() { report(LinkEvent::Readable); }
  void writableAgain() { report(LinkEvent::Writable); }
  bool isClosed() const;

 private:
  void report(LinkEvent event);
  template <class Ready>
  Wait waitUntil(Deadline deadline, Ready&& ready);
  Wait why() const;

  const std::string where_;
  mutable std::mutex mutex_;  // the state below
  LinkState state_ = LinkState::Idle;
  std::string failure_;
  LinkSignal signal_;
  std::recursive_mutex delivery_;  // held while the listener runs
  Listener listener_;
};

}  // namespace orvante::transport
