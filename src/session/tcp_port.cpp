// The TCP link: the open operations and the close operations, which close
// whichever link is open.

#include <system_error>

#include <orvante/session.hpp>

#include "internals.hpp"
#include "session_ops.hpp"

namespace {

constexpr double kSettlePause = 1.5;
constexpr double kOpenPoll = 0.1;
constexpr std::int32_t kDefaultPort = 9100;

}  // namespace

// The session becomes the delegate of both streams, then both are
// scheduled, then opened, input first each time. A missing stream is
// skipped.
void SessionOps::startTcpStreams(ORVANTESDK& s, const orvante::StreamPair& pair) {
  const std::shared_ptr<orvante::Stream> streams[] = {pair.input, pair.output};
  for (const auto& stream : streams) {
    if (stream) stream->setDelegate(&s.internals_->delegates);
  }
  for (const auto& stream : streams) {
    if (stream) stream->scheduleInRunLoop();
  }
  for (const auto& stream : streams) {
    if (stream) stream->open();
  }
}

std::int64_t ORVANTESDK::openport_ethernet(const std::string& host, std::int32_t port) {
  return openport_ethernet_delay(host, port, kSettlePause);
}

std::int64_t ORVANTESDK::openport_ethernet_delay(const std::string& host, std::int32_t port,
                                                 double delay) {
  // The previous streams are dropped without being closed.
  SessionOps::keepAbandoned(*this, {iStream.exchange(nullptr), oStream.exchange(nullptr)});
  auto pair = platform().streams->createPairWithSocketToHost(host, port);
  ORVANTESDKFields::readStream = pair.input;
  writeStream = pair.output;
  if (!pair.input || !pair.output) return -1;
  iStream = pair.input;
  oStream = pair.output;
  SessionOps::startTcpStreams(*this, pair);
  SessionOps::raiseTcpFlag(*this);
  pause(delay);
  return 1;
}

std::int64_t ORVANTESDK::openport(const std::string& host) {
  try {
    internals_->startThread([this, host] { openport_thread(host); });
    pause(kSettlePause);
  } catch (const std::system_error&) {
    closeport();
    return -1;
  }
  auto status = [this] {
    auto output = oStream.load();
    return output ? output->streamStatus() : orvante::StreamStatus::NotOpen;
  };
  while (status() == orvante::StreamStatus::Opening) pause(kOpenPoll);
  if (status() == orvante::StreamStatus::Open) return 1;
  closeport();
  return -1;
}

// The body of openport's thread. The streams' events are delivered by the
// library's event loop, so this thread ends once the streams are open.
void ORVANTESDK::openport_thread(const std::string& host) {
  auto pair = platform().streams->createPairWithSocketToHost(host, kDefaultPort);
  ORVANTESDKFields::readStream = pair.input;
  writeStream = pair.output;
  SessionOps::keepAbandoned(*this, {iStream.exchange(pair.input), oStream.exchange(pair.output)});
  SessionOps::startTcpStreams(*this, pair);
  if (!pair.output) {
    EthernetPortEnable = 0;
    closeport();
  }
  SessionOps::raiseTcpFlag(*this);
}

// The streams start before the flag goes up, so the error action may have
// run for them already (it closed them); it runs again then, so the flag
// never outlives the failure of its link. An error whose event is still
// to come is left to that event.
void SessionOps::raiseTcpFlag(ORVANTESDK& s) {
  bool failedAlready = false;
  {
    std::lock_guard flag(s.internals_->tcpFlagMutex);
    s.EthernetPortEnable = 1;
    for (const std::shared_ptr<orvante::Stream>& stream :
         {std::shared_ptr<orvante::Stream>(s.iStream.load()),
          std::shared_ptr<orvante::Stream>(s.oStream.load())}) {
      // Only the error action closes streams that were just started.
      if (stream && stream->streamStatus() == orvante::StreamStatus::Closed) failedAlready = true;
    }
  }
  if (failedAlready) SessionOps::failTcpLink(s);
}

// Streams that the error action closed can never carry a byte again:
// closing the link releases them instead of keeping them for the session's
// lifetime.
void SessionOps::releaseFailedTcpStreams(ORVANTESDK& s) {
  const auto input = s.iStream.load();
  const auto output = s.oStream.load();
  if (!orvante::isDead({input, output})) return;
  s.iStream = nullptr;
  s.oStream = nullptr;
  if (s.ORVANTESDKFields::readStream.load() == input) s.ORVANTESDKFields::readStream = nullptr;
  if (s.writeStream.load() == output) s.writeStream = nullptr;
}

// closeport waits 1.5 s in the TCP and accessory branches and clears the
// TCP flag first; the timed variants pause before anything else instead and
// clear the flag last.
std::int64_t ORVANTESDK::closeport() {
  return SessionOps::closeLink(*this, std::nullopt, true);
}

std::int64_t ORVANTESDK::closeport(double delay) {
  return SessionOps::closeLink(*this, delay, true);
}

std::int64_t ORVANTESDK::closeport_withtime(double delay) {
  return SessionOps::closeLink(*this, delay, false);
}

std::int64_t SessionOps::closeLink(ORVANTESDK& s, std::optional<double> delayBefore,
                                   bool disconnectBle) {
  const bool settle = !delayBefore.has_value();
  if (delayBefore) s.pause(*delayBefore);

  const auto link = SessionOps::currentLink(s);
  if (link == Link::Tcp) {
    if (settle) {
      s.EthernetPortEnable = 0;
      s.pause(kSettlePause);
    }
    // Stopping the caller's run loop has no counterpart here: the event loop
    // lets go of the pair when its streams are closed.
    if (auto input = s.iStream.load()) input->close();
    if (auto output = s.oStream.load()) output->close();
    s.iStream = nullptr;
    s.oStream = nullptr;
    s.ORVANTESDKFields::readStream = nullptr;
    s.writeStream = nullptr;
    if (!settle) s.EthernetPortEnable = 0;
    return 1;
  }

  SessionOps::releaseFailedTcpStreams(s);
  if (link != Link::Accessory) {
    if (disconnectBle && link == Link::Ble) s.BLE_Disconnect();
    return -1;
  }

  if (settle) s.pause(kSettlePause);
  s.MFI_port = 0;
  s.MFIPortEnable = 0;
  s.receivejudge = 0;
  if (auto accessorySession = s.session()) {
    const auto& input = accessorySession->inputStream();
    const auto& output = accessorySession->outputStream();
    if (output) output->removeFromRunLoop();
    if (input) input->removeFromRunLoop();
    if (input) input->close();
    if (output) output->close();
    if (input) input->setDelegate(nullptr);
    if (output) output->setDelegate(nullptr);
  }
  s.ORVANTESDKFields::session = nullptr;
  s._writeData = std::nullopt;
  s._readData = std::nullopt;
  return 1;
}
