#pragma once
// A session whose published fields a test can reach, and a rig of fake
// platform services to build it on.

#include <chrono>
#include <functional>
#include <thread>

#include <orvante/orvante.hpp>

#include <orvante/testing/fake_accessories.hpp>
#include <orvante/testing/fake_ble.hpp>
#include <orvante/testing/loopback_printer.hpp>
#include <orvante/testing/recording.hpp>
#include "transport/link_streams.hpp"

namespace orvante::testing {

class TestSession : public ORVANTESDK {
 public:
  using ORVANTESDKFields::_protocolString;
  using ORVANTESDKFields::_readData;
  using ORVANTESDKFields::_TestStream;
  using ORVANTESDKFields::_writeData;
  using ORVANTESDKFields::BLEDeviceList;
  using ORVANTESDKFields::BLEPortEnable;
  using ORVANTESDKFields::BLEReceivebuffer;
  using ORVANTESDKFields::buffer;
  using ORVANTESDKFields::cbReadCharacteristic;
  using ORVANTESDKFields::cbService;
  using ORVANTESDKFields::cbWirteCharacteristic;
  using ORVANTESDKFields::commandbuffer;
  using ORVANTESDKFields::connectPeripheral;
  using ORVANTESDKFields::end;
  using ORVANTESDKFields::endCRLF;
  using ORVANTESDKFields::error;
  using ORVANTESDKFields::EthernetPortEnable;
  using ORVANTESDKFields::isAvailable;
  using ORVANTESDKFields::iStream;
  using ORVANTESDKFields::IsXpico;
  using ORVANTESDKFields::MFI_port;
  using ORVANTESDKFields::MFIPortEnable;
  using ORVANTESDK::ORVANTESDK;
  using ORVANTESDKFields::oStream;
  using ORVANTESDKFields::receivejudge;
  using ORVANTESDKFields::RecvBuffer;
  using ORVANTESDKFields::sendjudge;
  using ORVANTESDKFields::stream_buffer;
  using ORVANTESDKFields::writeStream;

  // Field 3; its name is also the public reply reader.
  orvante::Field<std::shared_ptr<InputStream>>& readStreamHandle() {
    return ORVANTESDKFields::readStream;
  }
};

// Fake services for one test: a timeline of pauses and writes, real TCP
// streams whose writes are recorded, fake accessories and a fake radio.
struct Rig {
  explicit Rig(double realFraction = 0)
      : timeline(std::make_shared<Timeline>()),
        clock(std::make_shared<RecordingClock>(timeline, realFraction)),
        streams(std::make_shared<RecordingStreamFactory>(
            std::make_shared<transport::SocketStreamFactory>(), timeline)),
        accessories(std::make_shared<orvante::testing::FakeAccessoryManager>()),
        radio(std::make_shared<orvante::testing::FakeBleRadio>()) {
    accessories->setStreamWrapper(
        [timeline = timeline](StreamPair pair) { return recordWrites(std::move(pair), timeline); });
  }

  Platform platform() const { return {clock, streams, accessories, radio}; }

  std::shared_ptr<Timeline> timeline;
  std::shared_ptr<RecordingClock> clock;
  std::shared_ptr<RecordingStreamFactory> streams;
  std::shared_ptr<orvante::testing::FakeAccessoryManager> accessories;
  std::shared_ptr<orvante::testing::FakeBleRadio> radio;
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
