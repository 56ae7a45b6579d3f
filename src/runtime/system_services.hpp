#pragma once
// The composition root: the system's services, made once per process, as
// the platform seams give them and as the printer addresses need them.

#include <memory>

#include <orvante/platform/platform.hpp>

namespace orvante::platform::bluez {
class SerialAccessories;
}

namespace orvante::runtime {

struct SystemServices {
  Platform platform;
  // The paired serial-profile printers, also among platform.accessories.
  std::shared_ptr<platform::bluez::SerialAccessories> bluetoothSerial;
};

const SystemServices& systemServices();

}  // namespace orvante::runtime
