#include "printer_lock.hpp"

#include <map>
#include <memory>

namespace orvante::app {

std::recursive_mutex& printerLock(pappl_job_t* job) {
  static std::mutex mapMutex;
  static std::map<int, std::unique_ptr<std::recursive_mutex>> locks;
  std::lock_guard guard(mapMutex);
  auto& lock = locks[papplPrinterGetID(papplJobGetPrinter(job))];
  if (!lock) lock = std::make_unique<std::recursive_mutex>();
  return *lock;
}

}  // namespace orvante::app
