#pragma once
// Starts a program of the tests in the background: its arguments, and the
// descriptors `bind` sets up for it (standard output to a file, a pipe as
// its input...). Returns its process id, or -1 when it could not start.

#include <spawn.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

extern char** environ;

namespace orvante::testing {

inline pid_t spawnProcess(std::vector<std::string> args,
                          const std::function<void(posix_spawn_file_actions_t&)>& bind,
                          char* const* env = environ) {
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  bind(actions);
  pid_t pid = -1;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), env) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

}  // namespace orvante::testing
