#include "discovery.hpp"

#include <condition_variable>
#include <future>
#include <map>
#include <mutex>
#include <thread>

#include "../platform/linux/dns_sd.hpp"
#include "../transport/accessory_profile.hpp"
#include "system_services.hpp"

namespace orvante {
namespace runtime {
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
    if (advertisement.localName)
      name = *advertisement.localName;
    else if (name.empty())
      name = peripheral->name().value_or("");
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
    case ble::CentralState::PoweredOn:
      return nullptr;
    case ble::CentralState::PoweredOff:
      return "Bluetooth is off";
    case ble::CentralState::Unauthorized:
      return "Bluetooth is not allowed to this user";
    case ble::CentralState::Unsupported:
      return "no Bluetooth adapter (or no system bus)";
    default:
      return "the Bluetooth adapter did not answer";
  }
}

// The peripherals seen while scanning for `period`, with the last local
// name each advertised.
std::vector<FoundPrinter> scanBle(ble::CentralFactory& radio, std::chrono::milliseconds period,
                                  std::string& why) {
  Sightings sightings;
  auto central = radio.makeCentral(sightings, "orvante.scan");
  if (central->state() == ble::CentralState::Unknown ||
      central->state() == ble::CentralState::Resetting) {
    sightings.awaitState([&] {
      const auto state = central->state();
      return state != ble::CentralState::Unknown && state != ble::CentralState::Resetting;
    });
  }
  std::vector<FoundPrinter> found;
  if (const char* reason = whyNoScan(central->state())) {
    why = std::string(reason) + ": no BLE printers scanned";
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

// The accessories that are printers with an address: "bt://" for a paired
// serial-profile printer, the device's own address otherwise.
std::vector<FoundPrinter> attached(AccessoryManager& accessories) {
  std::vector<FoundPrinter> found;
  for (const auto& accessory : accessories.connectedAccessories()) {
    if (const auto mac = accessory->valueForKey(transport::accessory_profile::kMacAddressKey)) {
      found.push_back({"bt://" + *mac, accessory->name()});
    } else if (const auto uri = accessory->valueForKey("uri")) {
      found.push_back({*uri, accessory->name()});
    }
  }
  return found;
}

}  // namespace

std::vector<FoundPrinter> discover(const Platform& platform, std::chrono::milliseconds timeout,
                                   std::vector<std::string>* notes) {
  std::string networkWhy, bleWhy;
  auto network = std::async(std::launch::async, [&] {
    return platform::linux_devices::browseNetworkPrinters(timeout, networkWhy);
  });
  std::vector<FoundPrinter> found = scanBle(*platform.ble, timeout, bleWhy);
  const auto paired = attached(*platform.accessories);
  found.insert(found.end(), paired.begin(), paired.end());
  const auto networked = network.get();
  found.insert(found.end(), networked.begin(), networked.end());
  if (notes) {
    for (const auto& why : {bleWhy, networkWhy}) {
      if (!why.empty()) notes->push_back(why);
    }
  }
  return found;
}

}  // namespace runtime

std::vector<FoundPrinter> discover(std::chrono::milliseconds timeout,
                                   std::vector<std::string>* notes) {
  return runtime::discover(runtime::systemServices().platform, timeout, notes);
}

}  // namespace orvante
