// The accessory link: a printer connected over a serial data link, opened
// as a session on a protocol, its streams started on a thread of their own.

#include <algorithm>
#include <mutex>

#include "../transport/accessory_profile.hpp"
#include "internals.hpp"
#include "session_ops.hpp"

namespace {

using orvante::transport::accessory_profile::kDataPathProtocol;
using orvante::transport::accessory_profile::kMacAddressKey;
constexpr double kSettle = 0.3;
constexpr double kProtocolSettle = 0.2;

}  // namespace

// The variants differ in the protocol, whether the accessory must carry a
// name, whether MFI_port is set before the search (and so stays set when
// nothing is found), and the pause before the result.
std::int64_t SessionOps::openAccessory(ORVANTESDK& s, const std::string& protocol,
                                       const std::optional<std::string>& name, bool flagFirst,
                                       double settle) {
  if (flagFirst) s.MFI_port = 1;
  auto& manager = *s.platform().accessories;
  for (const auto& candidate : manager.connectedAccessories()) {
    const auto protocols = candidate->protocolStrings();
    if (std::find(protocols.begin(), protocols.end(), protocol) == protocols.end()) continue;
    s.ORVANTESDKFields::accessory = candidate;
    (void)candidate->name();
    break;
  }
  // An accessory stored by an earlier open is opened again, even when the
  // search found none this time.
  auto chosen = s.accessory();
  if (chosen && (!name || chosen->name() == *name)) {
    // A previous session is replaced without being closed.
    if (auto previous =
            s.ORVANTESDKFields::session.exchange(manager.openSession(chosen, protocol))) {
      SessionOps::keepAbandoned(s, {previous->inputStream(), previous->outputStream()});
    }
    s.internals_->startThread([&s] { s.openportMFI_thread(); });
    s.MFI_port = 1;
  }
  s.pause(settle);
  return s.MFIPortEnable == 1 ? 1 : -1;
}

std::int64_t ORVANTESDK::openportMFI() {
  return SessionOps::openAccessory(*this, kDataPathProtocol, std::nullopt, false, kSettle);
}

std::int64_t ORVANTESDK::openportMFI_delay(double delay) {
  return SessionOps::openAccessory(*this, kDataPathProtocol, std::nullopt, true, delay);
}

std::int64_t ORVANTESDK::openportMFI(const std::string& protocol) {
  return SessionOps::openAccessory(*this, protocol, std::nullopt, true, kProtocolSettle);
}

std::int64_t ORVANTESDK::openportMFI_delay(const std::string& protocol, double delay) {
  return SessionOps::openAccessory(*this, protocol, std::nullopt, true, delay);
}

std::int64_t ORVANTESDK::openportMFI_withname(const std::string& name) {
  return SessionOps::openAccessory(*this, kDataPathProtocol, name, false, kSettle);
}

std::int64_t ORVANTESDK::openportMFI_withname(const std::string& name, double delay) {
  return SessionOps::openAccessory(*this, kDataPathProtocol, name, true, delay);
}

// Opens the session's streams with the session as their delegate. Their
// events are then delivered by the library's event loop, so this thread
// ends here instead of idling in a run loop for ever.
void ORVANTESDK::openportMFI_thread() {
  if (auto accessorySession = session()) {
    for (const std::shared_ptr<orvante::Stream>& stream :
         {std::shared_ptr<orvante::Stream>(accessorySession->inputStream()),
          std::shared_ptr<orvante::Stream>(accessorySession->outputStream())}) {
      if (!stream) continue;
      stream->setDelegate(&internals_->delegates);
      stream->scheduleInRunLoop();
      stream->open();
    }
  }
  MFIPortEnable = 1;
}

void ORVANTESDK::searchMFI() {
  platform().accessories->showBluetoothAccessoryPicker();
}

std::optional<std::string> ORVANTESDK::BTMAC() {
  auto chosen = accessory();
  return chosen ? chosen->valueForKey(kMacAddressKey) : std::nullopt;
}
