// Image bytes of any kind into the decoder, and what it gives into the
// threshold packer: neither may crash, leak or allocate past the budget.

#include <cstddef>
#include <cstdint>

#include <orvante/image.hpp>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const orvante::Image image = orvante::Image::fromData({data, size});
  if (!image.empty() && image.rgba().size() != static_cast<std::size_t>(image.pixelWidth()) *
                                                   static_cast<std::size_t>(image.pixelHeight()) * 4) {
    __builtin_trap();
  }
  return 0;
}
