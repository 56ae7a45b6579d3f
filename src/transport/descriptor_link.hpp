#pragma once
// A link over one descriptor that the event loop watches: a TCP connection
// to a host and port, an already connected socket (a Bluetooth serial
// channel, one end of a socketpair), or a device (a serial line, a USB
// printer, a pseudo-terminal), read and written without blocking.

#include <memory>
#include <string>

#include "link.hpp"

namespace orvante::transport {

enum class DescriptorKind { Socket, Device };

// A TCP connection, made when the link starts; named host:port.
std::shared_ptr<Link> tcpLink(std::string host, int port);

// Takes the descriptor, open already; null when the event loop cannot run
// (the process is out of descriptors or threads).
std::shared_ptr<Link> descriptorLink(int fd, DescriptorKind kind, std::string where);

}  // namespace orvante::transport
