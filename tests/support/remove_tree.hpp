#pragma once
// Removes a test's folder. A helper process still ending (a browser's, a
// server's) may write into it while it goes: the removal is tried again
// for a while rather than failing the test on a file that came or went.

#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

namespace orvante::testing {

inline void removeTree(const std::filesystem::path& folder) {
  std::error_code failed;
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::filesystem::remove_all(folder, failed);
    if (!failed) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

}  // namespace orvante::testing
