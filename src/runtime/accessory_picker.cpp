// The application's accessory picker, which the accessory managers show.

#include <orvante/platform/accessory.hpp>

#include <mutex>

namespace orvante {
namespace {

std::mutex pickerMutex;
std::function<void()> picker;

}  // namespace

void setAccessoryPicker(std::function<void()> next) {
  std::lock_guard lock(pickerMutex);
  picker = std::move(next);
}

void showAccessoryPicker() {
  std::function<void()> current;
  {
    std::lock_guard lock(pickerMutex);
    current = picker;
  }
  if (current) current();
}

}  // namespace orvante
