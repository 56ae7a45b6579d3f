#include <orvante/testing/fake_accessories.hpp>

#include <sys/socket.h>

#include <algorithm>


namespace orvante::testing {

void FakeAccessoryManager::connect(std::shared_ptr<Accessory> accessory) {
  std::lock_guard lock(mutex_);
  connected_.push_back(std::move(accessory));
}

void FakeAccessoryManager::disconnectAll() {
  std::lock_guard lock(mutex_);
  connected_.clear();
}

void FakeAccessoryManager::failSessions(bool failing) {
  std::lock_guard lock(mutex_);
  failing_ = failing;
}

void FakeAccessoryManager::setResponder(PrinterPeer::Responder responder) {
  std::lock_guard lock(mutex_);
  responder_ = std::move(responder);
}

void FakeAccessoryManager::setStreamWrapper(std::function<StreamPair(StreamPair)> wrapper) {
  std::lock_guard lock(mutex_);
  wrapper_ = std::move(wrapper);
}

std::shared_ptr<PrinterPeer> FakeAccessoryManager::lastPrinter() const {
  std::lock_guard lock(mutex_);
  return printers_.empty() ? nullptr : printers_.back();
}

int FakeAccessoryManager::sessionsOpened() const {
  std::lock_guard lock(mutex_);
  return static_cast<int>(printers_.size());
}

int FakeAccessoryManager::pickerShown() const {
  std::lock_guard lock(mutex_);
  return pickerShown_;
}

std::vector<std::shared_ptr<Accessory>> FakeAccessoryManager::connectedAccessories() {
  std::lock_guard lock(mutex_);
  return connected_;
}

std::shared_ptr<AccessorySession> FakeAccessoryManager::openSession(
    const std::shared_ptr<Accessory>& accessory, const std::string& protocol) {
  if (!accessory) return nullptr;
  const auto protocols = accessory->protocolStrings();
  PrinterPeer::Responder responder;
  std::function<StreamPair(StreamPair)> wrapper;
  {
    std::lock_guard lock(mutex_);
    if (failing_) return nullptr;
    responder = responder_;
    wrapper = wrapper_;
  }
  if (std::find(protocols.begin(), protocols.end(), protocol) == protocols.end()) return nullptr;
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return nullptr;
  auto printer = std::make_shared<PrinterPeer>(ends[1], std::move(responder));
  {
    std::lock_guard lock(mutex_);
    printers_.push_back(printer);
  }
  auto streams = streamsOverSocket(ends[0]);
  if (wrapper) streams = wrapper(std::move(streams));
  return std::make_shared<AccessorySession>(accessory, protocol, std::move(streams));
}

void FakeAccessoryManager::showBluetoothAccessoryPicker() {
  std::lock_guard lock(mutex_);
  ++pickerShown_;
}

}  // namespace orvante::testing
