// org.bluez.Adapter1 of the stand-in: discovery, which also brings in the
// printers not heard before it started.

#include "fake_bluez.hpp"
#include "fake_bluez_model.hpp"

namespace orvante::testing {

using namespace fake_bluez;

void FakeBluez::registerAdapter(const std::string& path) {
  auto& adapter = *exported_[path];
  adapter.registerMethod("StartDiscovery").onInterface(kAdapter).implementedAs([this] {
    if (discovering_) {
      throw sdbus::Error("org.bluez.Error.InProgress", "Operation already in progress");
    }
    discovering_ = true;
    setProperty(kAdapterPath, kAdapter, "Discovering", sdbus::Variant(true));
    // Printers in range show up once the radio listens, after the reply.
    loop_->post([this] {
      for (const auto& later : laterDevices_) {
        std::vector<std::string> paths;
        for (const auto& [path, interfaces] : objects_) {
          if (path == later || path.rfind(later + "/", 0) == 0) paths.push_back(path);
        }
        for (const auto& path : paths) publish(path);
      }
      laterDevices_.clear();
    });
  });
  adapter.registerMethod("StopDiscovery").onInterface(kAdapter).implementedAs([this] {
    if (!discovering_) throw sdbus::Error("org.bluez.Error.Failed", "No discovery started");
    discovering_ = false;
    setProperty(kAdapterPath, kAdapter, "Discovering", sdbus::Variant(false));
  });
}

}  // namespace orvante::testing
