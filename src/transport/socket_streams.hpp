#pragma once
// A stream pair over one descriptor, whose events the event loop delivers:
// TCP connections to a host and port (names resolved off the caller's
// thread), an already connected socket such as one end of a socketpair or
// a Bluetooth serial channel, or a device such as a serial line or a USB
// printer.

#include <string>

#include <orvante/platform/stream.hpp>

namespace orvante::transport {

// The pair connects when its first stream is opened.
StreamPair connectSocketStreams(const std::string& host, int port);

// Takes ownership of a connected socket.
StreamPair adoptSocketStreams(int fd);

// Takes ownership of an open device (or any pollable descriptor that is not
// a socket), read and written with read(2) and write(2).
StreamPair adoptDeviceStreams(int fd);

class SocketStreamFactory final : public StreamFactory {
 public:
  StreamPair createPairWithSocketToHost(const std::string& host, std::int32_t port) override;
};

}  // namespace orvante::transport
