#include <orvante/platform/platform.hpp>

#include "../transport/socket_streams.hpp"
#include "../transport/unavailable_services.hpp"

namespace orvante {

Platform Platform::system() {
  static const Platform services{
      std::make_shared<SystemClock>(),
      std::make_shared<transport::SocketStreamFactory>(),
      std::make_shared<transport::NoAccessories>(),
      std::make_shared<transport::NoBleAdapter>(),
  };
  return services;
}

}  // namespace orvante
