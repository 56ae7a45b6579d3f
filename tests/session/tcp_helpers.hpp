#pragma once
// Opening a session's TCP link to a loopback printer in tests.

#include <gtest/gtest.h>

#include "transport/fakes/loopback_printer.hpp"
#include "test_session.hpp"

namespace orvante::testing {

// Opens the TCP link without the settling pause, waits until it is open and
// forgets the schedule so far.
inline void openTcp(TestSession& session, Rig& rig, LoopbackPrinter& printer) {
  ASSERT_EQ(session.openport_ethernet_delay("127.0.0.1", printer.port(), 0), 1);
  ASSERT_TRUE(eventually([&] { return session.stream_status() == 2; }));
  ASSERT_NE(printer.connection(0), nullptr);
  rig.timeline->clear();
}

inline std::vector<std::size_t> writeSizes(const Timeline& timeline) {
  std::vector<std::size_t> sizes;
  for (const auto& bytes : timeline.writes()) sizes.push_back(bytes.size());
  return sizes;
}

inline Bytes pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return bytes;
}

}  // namespace orvante::testing
