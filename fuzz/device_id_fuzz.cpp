// A USB printer's IEEE 1284 device ID reply, as the device sends it, into
// the parser and the naming: neither may crash or read past the reply, and
// every field found must lie inside it.

#include <cstddef>
#include <cstdint>

#include "platform/linux/device_id.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvante::platform::linux_devices;
  const auto fields = parseDeviceId({data, size});
  if (!fields) return 0;
  std::size_t text = 0;
  for (const auto& [key, value] : *fields) text += key.size() + value.size();
  if (text > size) __builtin_trap();
  (void)printerNameOf(*fields);
  return 0;
}
