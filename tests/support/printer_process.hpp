#pragma once
// orvante-vprinter as a process of its own, on a free port, in a folder of
// its own: for tests that drive it as a user would.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "spawn.hpp"

extern char** environ;

namespace orvante::testing {

namespace fs = std::filesystem;

inline std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

inline bool eventuallyTrue(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// Removes a test's folder. A helper process still ending (a browser's, a
// server's) may write into it while it goes: the removal is tried again.
inline void removeTree(const fs::path& folder) {
  std::error_code failed;
  eventuallyTrue([&] {
    fs::remove_all(folder, failed);
    return !failed;
  });
}

// orvante-vprinter on a free port, in a folder of its own.
class PrinterProcess {
 public:
  // An --out among the extra arguments takes the place of the labels
  // folder in the printer's own folder, a --listen that of a free port.
  explicit PrinterProcess(std::vector<std::string> extra = {}) {
    char folder[] = "/tmp/vprinter-test-XXXXXX";
    folder_ = mkdtemp(folder);
    labels_ = folder_ / "labels";
    int control[2];
    EXPECT_EQ(pipe2(control, O_CLOEXEC), 0);
    control_ = control[1];
    std::vector<std::string> args{VPRINTER_EXECUTABLE, "--port-file", (folder_ / "port").string(),
                                  "--journal", (folder_ / "journal.jsonl").string()};
    // A --listen among the extra arguments takes the place of a free port.
    if (std::find(extra.begin(), extra.end(), "--listen") == extra.end()) {
      args.insert(args.end(), {"--listen", "127.0.0.1:0"});
    }
    if (const auto out = std::find(extra.begin(), extra.end(), "--out");
        out != extra.end() && out + 1 != extra.end()) {
      labels_ = *(out + 1);
    } else {
      args.insert(args.end(), {"--out", labels_.string()});
    }
    args.insert(args.end(), extra.begin(), extra.end());
    pid_ = spawnProcess(std::move(args), [&](posix_spawn_file_actions_t& actions) {
      posix_spawn_file_actions_adddup2(&actions, control[0], STDIN_FILENO);
      posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (folder_ / "stdout").c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC, 0644);
    });
    EXPECT_GT(pid_, 0);
    close(control[0]);
    EXPECT_TRUE(eventuallyTrue([&] { return fs::exists(folder_ / "port"); }));
    port_ = std::stoi(readFile(folder_ / "port"));
  }

  ~PrinterProcess() {
    if (pid_ > 0) stop();
    close(control_);
    fs::remove_all(folder_);
  }

  int port() const { return port_; }
  pid_t pid() const { return pid_; }
  fs::path labels() const { return labels_; }
  std::string printed() const { return readFile(folder_ / "stdout"); }
  std::string journal() const { return readFile(folder_ / "journal.jsonl"); }
  void control(const std::string& line) {
    ASSERT_EQ(write(control_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
  }

  // SIGTERM; the exit status.
  int stop() {
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  fs::path folder_;
  fs::path labels_;
  pid_t pid_ = -1;
  int control_ = -1;
  int port_ = 0;
};

}  // namespace orvante::testing
