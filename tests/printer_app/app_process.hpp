#pragma once
// orvante-printer-app as a process of its own: its server on a loopback
// port, its state, spool and socket in a folder of its own; the `add`
// sub-command and ipptool drive it as a person would.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
#include <map>

#include "printer_process.hpp"

namespace orvante::testing {

// A port nobody listens on right now.
inline int freePort() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  close(fd);
  return ntohs(address.sin_port);
}

inline bool accepts(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool ok = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(fd);
  return ok;
}

struct CommandResult {
  int status = -1;
  std::string output;
};

// Runs a shell command; its standard output and error together.
inline CommandResult run(const std::string& command) {
  CommandResult result;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return result;
  char buffer[4096];
  std::size_t count = 0;
  while ((count = fread(buffer, 1, sizeof buffer, pipe)) > 0) result.output.append(buffer, count);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

class AppProcess {
 public:
  AppProcess() {
    char folder[] = "/tmp/papp-test-XXXXXX";
    folder_ = mkdtemp(folder);
    fs::create_directories(folder_ / "spool");
    start();
  }

  ~AppProcess() {
    if (pid_ > 0) stop();
    removeTree(folder_);
  }

  void start() {
    port_ = freePort();
    std::vector<std::string> args{PRINTER_APP_EXECUTABLE, "server",
                                  "-o", "listen-hostname=127.0.0.1",
                                  "-o", "server-port=" + std::to_string(port_),
                                  "-o", "spool-directory=" + (folder_ / "spool").string(),
                                  "-o", "state-file=" + (folder_ / "app.state").string(),
                                  "-o", "log-file=" + (folder_ / "app.log").string(),
                                  "-o", "log-level=debug"};
    std::vector<std::string> env{"TMPDIR=" + folder_.string(), "HOME=" + folder_.string(),
                                 "PATH=/usr/bin:/bin"};
    std::vector<char*> envp;
    for (auto& entry : env) envp.push_back(entry.data());
    envp.push_back(nullptr);
    pid_ = spawnProcess(
        std::move(args),
        [&](posix_spawn_file_actions_t& actions) {
          posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (folder_ / "stdout").c_str(),
                                           O_WRONLY | O_CREAT | O_APPEND, 0644);
          posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        },
        envp.data());
    EXPECT_GT(pid_, 0);
    EXPECT_TRUE(eventuallyTrue([&] { return accepts(port_); })) << log();
  }

  // SIGTERM, as a service manager stops it; PAPPL saves its state first.
  int stop() {
    kill(pid_, SIGTERM);
    int status = 0;
    // A server that does not stop within 10 s is killed: a test must end.
    if (!eventuallyTrue([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
      kill(pid_, SIGKILL);
      waitpid(pid_, &status, 0);
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  bool running() const { return pid_ > 0 && kill(pid_, 0) == 0; }

  // A sub-command of the application, against this server.
  CommandResult command(const std::string& arguments) const {
    return run("TMPDIR=" + folder_.string() + " HOME=" + folder_.string() + " " +
               PRINTER_APP_EXECUTABLE + " " + arguments + " -o state-file=" +
               (folder_ / "app.state").string());
  }

  CommandResult addPrinter(const std::string& name, int printerPort,
                           const std::string& driver = "orvante_203dpi") const {
    return command("add -d " + name + " -m " + driver + " -v socket://127.0.0.1:" +
                   std::to_string(printerPort));
  }

  std::string printerUri(const std::string& name) const {
    return "ipp://127.0.0.1:" + std::to_string(port_) + "/ipp/print/" + name;
  }

  // ipptool with one of the test files next to this source, and variables.
  CommandResult ipptool(const std::string& name, const std::string& testFile,
                        const std::map<std::string, std::string>& variables = {}) const {
    std::string line = "ipptool -T 30 -t";
    for (const auto& [key, value] : variables) line += " -d '" + key + "=" + value + "'";
    return run(line + " " + printerUri(name) + " " + IPP_TEST_FILES + "/" + testFile);
  }

  int port() const { return port_; }
  fs::path folder() const { return folder_; }
  std::string log() const { return readFile(folder_ / "app.log") + readFile(folder_ / "stdout"); }

 private:
  fs::path folder_;
  pid_t pid_ = -1;
  int port_ = 0;
};

}  // namespace orvante::testing
