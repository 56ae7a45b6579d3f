#include "unavailable_services.hpp"

namespace orvante::transport {
namespace {

class UnsupportedCentral final : public ble::Central {
 public:
  ble::CentralState state() const override { return ble::CentralState::Unsupported; }
  void scanForPeripherals() override {}
  void stopScan() override {}
  void connect(const std::shared_ptr<ble::Peripheral>&) override {}
  void cancelPeripheralConnection(const std::shared_ptr<ble::Peripheral>&) override {}
  void setDelegate(ble::CentralDelegate*) override {}
};

}  // namespace

std::shared_ptr<ble::Central> NoBleAdapter::makeCentral(ble::CentralDelegate&, const std::string&) {
  return std::make_shared<UnsupportedCentral>();
}

}  // namespace orvante::transport
