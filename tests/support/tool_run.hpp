#pragma once
// The orvante tool run as a person runs it, through the shell: its exit
// status and what it printed on standard output and standard error. The
// suite defines ORVANTE_CLI, the tool's path.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace orvante::testing {

struct ToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

inline std::string slurp(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// Runs the tool with the arguments (already quoted for the shell) and the
// environment settings ("NAME='value' ...") before it.
inline ToolRun runTool(const std::string& arguments, const std::string& environment = "") {
  const std::string base = ::testing::TempDir() + "orvante-cli-" + std::to_string(::getpid());
  const std::string command = environment + " " ORVANTE_CLI " " + arguments + " >" + base +
                              ".out 2>" + base + ".err </dev/null";
  ToolRun run;
  const int raw = std::system(command.c_str());
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = slurp(base + ".out");
  run.err = slurp(base + ".err");
  return run;
}

}  // namespace orvante::testing
