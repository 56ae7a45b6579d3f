#include "bluez_virtual_printer.hpp"

#include <algorithm>

namespace orvante::testing {
namespace {

// What one notification of the smallest MTU carries.
constexpr std::size_t kNotificationPiece = 20;

}  // namespace

BluezVirtualPrinter::BluezVirtualPrinter(FakeBluez& bluez, vprinter::Options options)
    : bluez_(bluez), engine_(std::move(options)) {
  bluez_.setResponder([this](FakeBluez& fake, const std::string& device, ByteView data) {
    const Bytes replies = feed(device, data);
    for (std::size_t at = 0; at < replies.size(); at += kNotificationPiece) {
      const auto end = std::min(replies.size(), at + kNotificationPiece);
      fake.notify(device, Bytes(replies.begin() + static_cast<std::ptrdiff_t>(at),
                                replies.begin() + static_cast<std::ptrdiff_t>(end)));
    }
  });
  bluez_.setSerialResponder([this](PrinterPeer& peer, ByteView fresh, ByteView) {
    const Bytes replies = feed("serial", fresh);
    if (!replies.empty()) peer.send(replies);
  });
}

BluezVirtualPrinter::~BluezVirtualPrinter() {
  bluez_.setResponder(nullptr);
  bluez_.setSerialResponder(nullptr);
}

Bytes BluezVirtualPrinter::feed(const std::string& link, ByteView bytes) {
  std::lock_guard lock(mutex_);
  const auto id = links_.emplace(link, static_cast<vprinter::ConnectionId>(links_.size() + 1));
  fed_ += bytes.size();
  return engine_.feed(id.first->second, bytes);
}

std::vector<vprinter::PrintedLabel> BluezVirtualPrinter::takePrinted() {
  std::lock_guard lock(mutex_);
  return engine_.takePrinted();
}

std::size_t BluezVirtualPrinter::bytesFed() const {
  std::lock_guard lock(mutex_);
  return fed_;
}

void BluezVirtualPrinter::setStatus(std::uint8_t status) {
  std::lock_guard lock(mutex_);
  engine_.setStatus(status);
}

}  // namespace orvante::testing
