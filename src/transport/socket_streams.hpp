#pragma once
// A stream pair over one socket, serviced by an event thread of its own:
// TCP connections to a host and port (names resolved off the caller's
// thread), or an already connected socket such as one end of a socketpair
// or a Bluetooth serial channel.

#include <string>

#include <orvante/platform/stream.hpp>

namespace orvante::transport {

// The pair connects when its first stream is opened.
StreamPair connectSocketStreams(const std::string& host, int port);

// Takes ownership of a connected socket.
StreamPair adoptSocketStreams(int fd);

// Takes ownership of any pollable descriptor (a tty, a USB printer device,
// a pipe): bytes move with read and write, and the bytes waiting are told
// by FIONREAD or, where the device lacks it, by a zero-timeout poll.
StreamPair adoptDeviceStreams(int fd);

class SocketStreamFactory final : public StreamFactory {
 public:
  StreamPair createPairWithSocketToHost(const std::string& host, std::int32_t port) override;
};

}  // namespace orvante::transport
