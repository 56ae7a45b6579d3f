#include "private_bus.hpp"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace orvante::testing {

PrivateBus::PrivateBus() {
  char pattern[] = "/tmp/orvante-bus-XXXXXX";
  if (!::mkdtemp(pattern)) throw std::runtime_error("no directory for the private bus");
  directory_ = pattern;
  const std::string socket = directory_ + "/bus";
  const std::string config = directory_ + "/bus.conf";
  {
    std::ofstream out(config);
    out << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>custom</type>\n"
           "  <listen>unix:path="
        << socket
        << "</listen>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n"
           "    <allow user=\"*\"/>\n"
           "    <allow own=\"*\"/>\n"
           "    <allow send_destination=\"*\"/>\n"
           "    <allow receive_sender=\"*\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";
  }
  const std::string configArgument = "--config-file=" + config;
  const char* argv[] = {"dbus-daemon", configArgument.c_str(), "--nofork", "--nopidfile", nullptr};
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("dbus-daemon could not be started");
  if (pid_ == 0) {
    // The daemon ends with the test process, even one killed on a timeout,
    // and its complaints (it cannot raise its file limit unprivileged) stay
    // out of the test output.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    const int quiet = ::open("/dev/null", O_WRONLY);
    if (quiet >= 0) ::dup2(quiet, 2);
    ::execvp("dbus-daemon", const_cast<char**>(argv));
    ::_exit(127);
  }
  address_ = "unix:path=" + socket;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  // The socket's file is there from bind on; the daemon listens a moment
  // later, so the wait is for a connection that is taken.
  const auto listening = [&] {
    sockaddr_un where{};
    where.sun_family = AF_UNIX;
    std::snprintf(where.sun_path, sizeof where.sun_path, "%s", socket.c_str());
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool taken = ::connect(probe, reinterpret_cast<sockaddr*>(&where), sizeof where) == 0;
    ::close(probe);
    return taken;
  };
  while (!listening()) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(pid_, SIGTERM);
      ::waitpid(pid_, nullptr, 0);
      throw std::runtime_error("dbus-daemon did not start listening");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

PrivateBus::~PrivateBus() {
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    int status;
    ::waitpid(pid_, &status, 0);
  }
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

}  // namespace orvante::testing
