#pragma once
// The platform's stream pair (the seam the session, the accessories and
// applications' own fakes speak) over a link of the core: the statuses
// 0 to 7, the events 1/2/4/8/16 delivered on the event loop while a stream
// is scheduled, and reads and writes that wait as a blocking stream does.

#include <memory>
#include <string>

#include <orvante/platform/stream.hpp>

#include "link.hpp"

namespace orvante::transport {

// Opening either stream starts the link; closing both closes it.
StreamPair linkStreams(std::shared_ptr<Link> link);

// A pair over a TCP link to a host and port, connected when opened.
StreamPair connectSocketStreams(const std::string& host, int port);
// Pairs over descriptors they take: a connected socket, a device.
StreamPair adoptSocketStreams(int fd);
StreamPair adoptDeviceStreams(int fd);

class SocketStreamFactory final : public StreamFactory {
 public:
  StreamPair createPairWithSocketToHost(const std::string& host, std::int32_t port) override;
};

}  // namespace orvante::transport
