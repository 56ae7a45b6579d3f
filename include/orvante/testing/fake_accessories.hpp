#pragma once
// In-memory accessories: printers "connected" over the serial data link,
// each session a socketpair whose far end is a PrinterPeer.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include <orvante/export.hpp>
#include <orvante/platform/accessory.hpp>

#include <orvante/testing/printer_peer.hpp>

ORVANTE_API_BEGIN

namespace orvante::testing {

class FakeAccessory final : public Accessory {
 public:
  FakeAccessory(std::string name, std::vector<std::string> protocols,
                std::map<std::string, std::string> properties = {})
      : name_(std::move(name)),
        protocols_(std::move(protocols)),
        properties_(std::move(properties)) {}

  std::vector<std::string> protocolStrings() const override { return protocols_; }
  std::string name() const override { return name_; }
  std::optional<std::string> valueForKey(const std::string& key) const override {
    auto found = properties_.find(key);
    if (found == properties_.end()) return std::nullopt;
    return found->second;
  }

 private:
  std::string name_;
  std::vector<std::string> protocols_;
  std::map<std::string, std::string> properties_;
};

class FakeAccessoryManager final : public AccessoryManager {
 public:
  void connect(std::shared_ptr<Accessory> accessory);
  void disconnectAll();
  // Sessions fail to open while set, as for a printer that went away.
  void failSessions(bool failing);
  // Every session opened from now on answers through this responder.
  void setResponder(PrinterPeer::Responder responder);
  // Every session's streams pass through this before use (to observe them).
  void setStreamWrapper(std::function<StreamPair(StreamPair)> wrapper);

  // The printer's end of the last session opened, or null.
  std::shared_ptr<PrinterPeer> lastPrinter() const;
  int sessionsOpened() const;
  int pickerShown() const;

  std::vector<std::shared_ptr<Accessory>> connectedAccessories() override;
  std::shared_ptr<AccessorySession> openSession(const std::shared_ptr<Accessory>& accessory,
                                                const std::string& protocol) override;
  void showBluetoothAccessoryPicker() override;

 private:
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<Accessory>> connected_;
  std::vector<std::shared_ptr<PrinterPeer>> printers_;
  PrinterPeer::Responder responder_;
  std::function<StreamPair(StreamPair)> wrapper_;
  bool failing_ = false;
  int pickerShown_ = 0;
};

}  // namespace orvante::testing

ORVANTE_API_END
