#include "printer_scan.hpp"

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace orvante::cli {
namespace {

using namespace std::chrono_literals;

// How long a radio may take to tell its state.
constexpr auto kStateLimit = 2s;

// Collects what the central reports, on its queue.
class Sightings final : public ble::CentralDelegate {
 public:
  void centralManagerDidUpdateState(ble::Central&) override {
    std::lock_guard lock(mutex_);
    ++stateReports_;
    changed_.notify_all();
  }
  void centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>& peripheral,
                      const ble::AdvertisementData& advertisement, std::int64_t) override {
    const auto address = peripheral->identifier();
    if (!address) return;
    std::lock_guard lock(mutex_);
    auto& name = names_[*address];
    if (advertisement.localName) name = *advertisement.localName;
    else if (name.empty()) name = peripheral->name().value_or("");
  }
  void centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>&) override {}
  void centralManager(ble::Central&, const std::shared_ptr<ble::Peripheral>&,
                      const ble::Error*) override {}

  // Waits until the central has told its state, or the limit passes.
  template <class Known>
  void awaitState(Known&& known) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kStateLimit, [&] { return stateReports_ > 0 && known(); });
  }
  std::map<std::string, std::string> names() const {
    std::lock_guard lock(mutex_);
    return names_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  int stateReports_ = 0;
  std::map<std::string, std::string> names_;
};

const char* whyNoScan(ble::CentralState state) {
  switch (state) {
    case ble::CentralState::PoweredOn: return nullptr;
    case ble::CentralState::PoweredOff: return "Bluetooth is off";
    case ble::CentralState::Unauthorized: return "Bluetooth is not allowed to this user";
    case ble::CentralState::Unsupported: return "no Bluetooth adapter (or no system bus)";
    default: return "the Bluetooth adapter did not answer";
  }
}

}  // namespace

std::vector<FoundPrinter> scanBlePrinters(ble::CentralFactory& radio,
                                          std::chrono::milliseconds period, std::ostream& notes) {
  Sightings sightings;
  auto central = radio.makeCentral(sightings, "myCentralQueue");
  if (central->state() == ble::CentralState::Unknown ||
      central->state() == ble::CentralState::Resetting) {
    sightings.awaitState([&] {
      const auto state = central->state();
      return state != ble::CentralState::Unknown && state != ble::CentralState::Resetting;
    });
  }
  std::vector<FoundPrinter> found;
  if (const char* why = whyNoScan(central->state())) {
    notes << "orvante: " << why << ": no BLE printers scanned\n";
    central->setDelegate(nullptr);
    return found;
  }
  central->scanForPeripherals();
  std::this_thread::sleep_for(period);
  central->stopScan();
  central->setDelegate(nullptr);
  for (const auto& [address, name] : sightings.names()) found.push_back({"ble://" + address, name});
  return found;
}

std::vector<FoundPrinter> accessoryPrinters(AccessoryManager& accessories) {
  std::vector<FoundPrinter> found;
  for (const auto& accessory : accessories.connectedAccessories()) {
    if (const auto mac = accessory->valueForKey("macAddress")) {
      found.push_back({"bt://" + *mac, accessory->name()});
    } else if (const auto uri = accessory->valueForKey("uri")) {
      found.push_back({*uri, accessory->name()});
    }
  }
  return found;
}

void printFound(const std::vector<FoundPrinter>& printers, std::ostream& out) {
  for (const auto& printer : printers) {
    out << printer.address;
    if (!printer.name.empty()) out << ' ' << printer.name;
    out << '\n';
  }
}

}  // namespace orvante::cli
