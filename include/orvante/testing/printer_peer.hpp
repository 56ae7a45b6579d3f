#pragma once
// The printer's end of a link in tests and stand-ins: it records every byte
// it receives on a connected socket (or another descriptor such as the
// master side of a pseudo-terminal), answers through a responder, and can
// misbehave on purpose (pause reading, close, reset).

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include <orvante/bytes.hpp>
#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante::testing {

class PrinterPeer {
 public:
  // Called on the peer's thread with the bytes of each read and everything
  // received so far.
  using Responder = std::function<void(PrinterPeer& peer, ByteView fresh, ByteView all)>;

  // Takes ownership of the connected socket, or of another readable and
  // writable descriptor, and starts reading it.
  explicit PrinterPeer(int fd, Responder responder = nullptr);
  ~PrinterPeer();
  PrinterPeer(const PrinterPeer&) = delete;
  PrinterPeer& operator=(const PrinterPeer&) = delete;

  Bytes received() const;
  std::size_t receivedCount() const;
  // True once at least count bytes arrived within the timeout.
  bool waitForBytes(std::size_t count,
                    std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  // True once the other side closed the link within the timeout.
  bool waitForHangUp(std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  bool hungUp() const;

  void setResponder(Responder responder);
  // Sends at once, or after a delay (from the peer's thread).
  void send(ByteView bytes);
  void sendLater(Bytes bytes, std::chrono::milliseconds delay);

  // Stops reading, so the sender's buffers fill up; resumes on false.
  void pauseReading(bool paused);
  // An orderly close, or a reset (RST) that breaks the connection.
  void close();
  void reset();
  // Resets the connection once this many bytes have been received.
  void resetAfter(std::size_t count);

 private:
  void run();
  void wake();
  void resetNow();

  int fd_;
  bool socket_;
  int wakeFd_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  Bytes received_;
  Responder responder_;
  struct Timed {
    std::chrono::steady_clock::time_point due;
    Bytes bytes;
  };
  std::vector<Timed> outgoing_;
  bool paused_ = false;
  bool hungUp_ = false;
  bool stopping_ = false;
  bool resetRequested_ = false;
  std::size_t resetAfter_ = 0;
  std::thread thread_;
};

}  // namespace orvante::testing

ORVANTE_API_END
