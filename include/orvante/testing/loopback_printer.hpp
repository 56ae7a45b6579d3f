#pragma once
// A printer on the loopback interface: accepts TCP connections on a free
// port and gives each to a PrinterPeer, which records every byte and
// answers through the responder.

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <orvante/export.hpp>
#include <orvante/testing/printer_peer.hpp>

ORVANTE_API_BEGIN

namespace orvante::testing {

class LoopbackPrinter {
 public:
  explicit LoopbackPrinter(PrinterPeer::Responder responder = nullptr);
  ~LoopbackPrinter();

  int port() const { return port_; }
  // The connection accepted n-th (0 first), waiting for it if need be.
  std::shared_ptr<PrinterPeer> connection(
      std::size_t index = 0, std::chrono::milliseconds timeout = std::chrono::seconds(10));
  std::size_t connectionCount() const;
  // Bytes of the first connection.
  Bytes received() const;
  bool waitForBytes(std::size_t count);

 private:
  void run();

  int port_ = 0;  // set while listenFd_ is made, so declared before it
  int listenFd_;
  int wakeFd_;
  PrinterPeer::Responder responder_;
  mutable std::mutex mutex_;
  std::condition_variable accepted_;
  std::vector<std::shared_ptr<PrinterPeer>> connections_;
  bool stopping_ = false;
  std::thread thread_;
};

// A port on the loopback interface where nothing listens.
int refusedPort();

}  // namespace orvante::testing

ORVANTE_API_END
