#pragma once
// The platform services a session uses. An application never picks them:
// the default session uses the system's. Tests and tools hand a session
// other implementations of the same seams.

#include <memory>

#include <orvante/export.hpp>
#include <orvante/platform/accessory.hpp>
#include <orvante/platform/ble.hpp>
#include <orvante/platform/clock.hpp>
#include <orvante/platform/stream.hpp>

ORVANTE_API_BEGIN

namespace orvante {

struct Platform {
  std::shared_ptr<Clock> clock;
  std::shared_ptr<StreamFactory> streams;
  std::shared_ptr<AccessoryManager> accessories;
  std::shared_ptr<ble::CentralFactory> ble;

  // Real sleeps, TCP sockets, the system's accessories and BLE adapter.
  static Platform system();
};

}  // namespace orvante

ORVANTE_API_END
