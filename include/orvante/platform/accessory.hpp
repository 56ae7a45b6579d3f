#pragma once
// The accessory seam: printers connected over a serial data link (Bluetooth
// serial profile, USB or serial devices), listed with their protocol names,
// names and properties, opened as a stream pair.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orvante/export.hpp>
#include <orvante/platform/stream.hpp>

ORVANTE_API_BEGIN

namespace orvante {

class Accessory {
 public:
  virtual ~Accessory() = default;
  virtual std::vector<std::string> protocolStrings() const = 0;
  virtual std::string name() const = 0;
  // Properties such as "macAddress"; none when the accessory has no value.
  virtual std::optional<std::string> valueForKey(const std::string& key) const = 0;
};

// An open session to an accessory for one protocol: its two streams.
class AccessorySession {
 public:
  AccessorySession(std::shared_ptr<Accessory> accessory, std::string protocolString,
                   StreamPair streams)
      : accessory_(std::move(accessory)),
        protocolString_(std::move(protocolString)),
        streams_(std::move(streams)) {}

  const std::shared_ptr<Accessory>& accessory() const { return accessory_; }
  const std::string& protocolString() const { return protocolString_; }
  const std::shared_ptr<InputStream>& inputStream() const { return streams_.input; }
  const std::shared_ptr<OutputStream>& outputStream() const { return streams_.output; }

 private:
  std::shared_ptr<Accessory> accessory_;
  std::string protocolString_;
  StreamPair streams_;
};

class AccessoryManager {
 public:
  virtual ~AccessoryManager() = default;
  // The connected accessories, in the manager's order.
  virtual std::vector<std::shared_ptr<Accessory>> connectedAccessories() = 0;
  // A session for the accessory and protocol; null when none can be made.
  virtual std::shared_ptr<AccessorySession> openSession(const std::shared_ptr<Accessory>& accessory,
                                                        const std::string& protocol) = 0;
  // Lets the user pick and pair a printer; returns at once.
  virtual void showBluetoothAccessoryPicker() = 0;
};

// The application's accessory picker, shown by ORVANTESDK::searchMFI on the
// system's accessories; nothing by default. Returns at once.
void setAccessoryPicker(std::function<void()> picker);
void showAccessoryPicker();

}  // namespace orvante

ORVANTE_API_END
