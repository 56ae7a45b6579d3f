#include "printer_lock.hpp"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <thread>

namespace orvante::app {

namespace {

std::mutex tablesMutex;

std::uint64_t keyOf(pappl_job_t* job) {
  return (static_cast<std::uint64_t>(papplPrinterGetID(papplJobGetPrinter(job))) << 32) |
         static_cast<std::uint32_t>(papplJobGetID(job));
}

}  // namespace

std::recursive_mutex& printerLock(pappl_job_t* job) {
  static std::map<int, std::unique_ptr<std::recursive_mutex>> locks;
  std::lock_guard guard(tablesMutex);
  auto& lock = locks[papplPrinterGetID(papplJobGetPrinter(job))];
  if (!lock) lock = std::make_unique<std::recursive_mutex>();
  return *lock;
}

bool claimJob(pappl_job_t* job) {
  // Claims are few bytes each; the oldest are dropped once there are many.
  static std::map<std::uint64_t, std::thread::id> claims;
  constexpr std::size_t kKept = 10000;
  std::lock_guard guard(tablesMutex);
  const auto [claim, added] = claims.emplace(keyOf(job), std::this_thread::get_id());
  if (claims.size() > kKept) claims.erase(claims.begin());
  return added || claim->second == std::this_thread::get_id();
}

const char* jobFile(pappl_job_t* job) {
  using namespace std::chrono_literals;
  const auto deadline = std::chrono::steady_clock::now() + 30s;
  const char* file = papplJobGetFilename(job);
  while (file == nullptr && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(10ms);
    file = papplJobGetFilename(job);
  }
  return file;
}

ClaimedDocument claimDocument(pappl_job_t* job) {
  if (!claimJob(job)) return {};
  const char* file = jobFile(job);
  if (file == nullptr) papplJobSetMessage(job, "The document never arrived.");
  return {true, file};
}

}  // namespace orvante::app
