#pragma once
// A session whose published fields a test can reach, and a rig of fake
// platform services to build it on.

#include <chrono>
#include <functional>
#include <thread>

#include <orvante/orvante.hpp>

#include "transport/fakes/fake_accessories.hpp"
#include "transport/fakes/fake_ble.hpp"
#include "transport/fakes/loopback_printer.hpp"
#include "transport/fakes/recording.hpp"
#include "transport/socket_streams.hpp"

namespace orvante::testing {

using fakes::EventGate;
using fakes::LoopbackPrinter;
using fakes::RecordingClock;
using fakes::RecordingStreamFactory;
using fakes::refusedPort;
using fakes::show;
using fakes::Timeline;

class TestSession : public ORVANTESDK {
 public:
  using ORVANTESDK::_protocolString;
  using ORVANTESDK::_readData;
  using ORVANTESDK::_TestStream;
  using ORVANTESDK::_writeData;
  using ORVANTESDK::BLEDeviceList;
  using ORVANTESDK::BLEPortEnable;
  using ORVANTESDK::BLEReceivebuffer;
  using ORVANTESDK::buffer;
  using ORVANTESDK::cbReadCharacteristic;
  using ORVANTESDK::cbService;
  using ORVANTESDK::cbWirteCharacteristic;
  using ORVANTESDK::commandbuffer;
  using ORVANTESDK::connectPeripheral;
  using ORVANTESDK::end;
  using ORVANTESDK::endCRLF;
  using ORVANTESDK::error;
  using ORVANTESDK::EthernetPortEnable;
  using ORVANTESDK::isAvailable;
  using ORVANTESDK::iStream;
  using ORVANTESDK::IsXpico;
  using ORVANTESDK::MFI_port;
  using ORVANTESDK::MFIPortEnable;
  using ORVANTESDK::ORVANTESDK;
  using ORVANTESDK::oStream;
  using ORVANTESDK::receivejudge;
  using ORVANTESDK::RecvBuffer;
  using ORVANTESDK::sendjudge;
  using ORVANTESDK::stream_buffer;
  using ORVANTESDK::writeStream;
};

// Fake services for one test: a timeline of pauses and writes, real TCP
// streams whose writes are recorded, fake accessories and a fake radio.
struct Rig {
  explicit Rig(double realFraction = 0)
      : timeline(std::make_shared<Timeline>()),
        clock(std::make_shared<RecordingClock>(timeline, realFraction)),
        streams(std::make_shared<RecordingStreamFactory>(
            std::make_shared<transport::SocketStreamFactory>(), timeline)),
        accessories(std::make_shared<fakes::FakeAccessoryManager>()),
        radio(std::make_shared<fakes::FakeBleRadio>()) {
    accessories->setStreamWrapper(
        [timeline = timeline](StreamPair pair) { return recordWrites(std::move(pair), timeline); });
  }

  Platform platform() const { return {clock, streams, accessories, radio}; }

  std::shared_ptr<Timeline> timeline;
  std::shared_ptr<RecordingClock> clock;
  std::shared_ptr<RecordingStreamFactory> streams;
  std::shared_ptr<fakes::FakeAccessoryManager> accessories;
  std::shared_ptr<fakes::FakeBleRadio> radio;
};

// Polls a condition that another thread makes true.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace orvante::testing
