#pragma once
// Opening each kind of link on a test session: TCP to a loopback printer,
// an accessory session over a fake accessory, BLE to a fake peripheral.

#include <gtest/gtest.h>

#include <orvante/lzss.hpp>

#include "test_session.hpp"

namespace orvante::testing {

inline const char* const kDataPath = "com.issc.datapath";

// Opens the TCP link without the settling pause, waits until it is open and
// forgets the schedule so far.
inline void openTcp(TestSession& session, Rig& rig, LoopbackPrinter& printer) {
  ASSERT_EQ(session.openport_ethernet_delay("127.0.0.1", printer.port(), 0), 1);
  ASSERT_TRUE(eventually([&] { return session.stream_status() == 2; }));
  ASSERT_NE(printer.connection(0), nullptr);
  rig.timeline->clear();
}

// A test session whose TCP link is open to a loopback printer; tests take
// its parts with `auto& [rig, session, printer] = tcp;`.
struct TcpRig {
  explicit TcpRig(double realFraction = 0, orvante::testing::PrinterPeer::Responder responder = nullptr)
      : rig(realFraction), session(rig.platform()), printer(std::move(responder)) {
    openTcp(session, rig, printer);
  }
  Rig rig;
  TestSession session;
  LoopbackPrinter printer;
};

// An open accessory session to a fake printer, as the accessory link
// leaves it once its thread has run.
inline std::shared_ptr<AccessorySession> openAccessorySession(Rig& rig) {
  auto printer =
      std::make_shared<orvante::testing::FakeAccessory>("Printer", std::vector<std::string>{kDataPath});
  auto accessorySession = rig.accessories->openSession(printer, kDataPath);
  accessorySession->inputStream()->open();
  accessorySession->outputStream()->open();
  return accessorySession;
}

inline void openAccessory(TestSession& session, Rig& rig) {
  auto accessorySession = openAccessorySession(rig);
  session.setSession(accessorySession);
  session.MFI_port = 1;
  session.MFIPortEnable = 1;
  ASSERT_TRUE(eventually(
      [&] { return accessorySession->outputStream()->streamStatus() == StreamStatus::Open; }));
  rig.timeline->clear();
}

// A printer on the BLE link, connected and discovered.
inline std::shared_ptr<orvante::testing::FakePeripheral> openBle(TestSession& session, Rig& rig,
                                                      std::string manufacturer = "Orvante Labs") {
  auto printer = orvante::testing::FakePeripheral::printer("BLE printer", std::move(manufacturer));
  rig.radio->addPeripheral(printer);
  EXPECT_EQ(session.openport_ble(printer), 1);
  rig.radio->central()->drain();
  rig.timeline->clear();
  return printer;
}

// The bytes written to the BLE write characteristic, in order.
inline Bytes bleBytes(const orvante::testing::FakePeripheral& printer) {
  Bytes bytes;
  for (const auto& write : printer.writes())
    bytes.insert(bytes.end(), write.data.begin(), write.data.end());
  return bytes;
}

// A printer that answers each query it recognises at the end of what it
// received so far.
inline orvante::testing::PrinterPeer::Responder answering(
    std::vector<std::pair<std::string, std::string>> replies) {
  return [replies](orvante::testing::PrinterPeer& peer, ByteView, ByteView all) {
    const std::string text = textOf(all);
    for (const auto& [query, reply] : replies) {
      if (text.size() >= query.size() &&
          text.compare(text.size() - query.size(), query.size(), query) == 0) {
        peer.send(viewOf(reply));
      }
    }
  };
}

// What one session operation sends over a TCP link, whole.
template <class Operation>
Bytes sentBy(Operation&& operation) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  operation(session);
  session.closeport_withtime(0);
  auto peer = printer.connection();
  EXPECT_TRUE(peer->waitForHangUp());
  return peer->received();
}

// A label's bitmap packet against the session's for the same element: the
// same 16-byte header, streams that decode to the same raster (the label's
// from lzss::compress, the session's from the classic encoder) and the
// label's closed by a line end. `after` is what the session sends past its
// stream.
inline void expectSamePacket(const Bytes& label, const Bytes& published, std::string_view after) {
  ASSERT_GE(label.size(), 18u);
  ASSERT_GE(published.size(), 16 + after.size());
  EXPECT_EQ(Bytes(label.begin(), label.begin() + 16), Bytes(published.begin(), published.begin() + 16));
  EXPECT_EQ(textOf(ByteView(label).last(2)), "\r\n");
  EXPECT_EQ(textOf(ByteView(published).last(after.size())), after);
  const std::size_t size = std::size_t(label[6] | label[7] << 8) * std::size_t(label[8] | label[9] << 8);
  EXPECT_EQ(lzss::decode(ByteView(label).subspan(16, label.size() - 18), size),
            lzss::decode(ByteView(published).subspan(16, published.size() - 16 - after.size()), size));
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
