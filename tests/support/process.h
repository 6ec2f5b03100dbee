// Runs a real second process and collects what it prints.
#pragma once

#include "support/tempdir.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

struct ProcessResult {
  int status = -1; // the exit status, or 128 plus the signal that ended it
  std::string out;
  std::string err;
};

// `environment` entries ("NAME=value") come on top of this process's own. `standardOutput` is a file to write to instead
// of collecting what is printed.
inline ProcessResult runProcess(const std::vector<std::string>& command,
                                const std::vector<std::string>& environment = {},
                                const std::string& standardOutput = "", const std::string& folder = "/") {
  const TempDir collected;
  const std::string out = standardOutput.empty() ? collected / "out" : standardOutput;
  const std::string err = collected / "err";

  std::vector<char*> argv, envp;
  for (const auto& word : command)
    argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  for (const auto& entry : environment)
    envp.push_back(const_cast<char*>(entry.c_str()));
  for (char** entry = environ; *entry; ++entry)
    envp.push_back(*entry);
  envp.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT, 0600);
  pid_t child = 0;
  const int failed = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0)
    throw std::runtime_error("cannot run " + command.front());

  int state = 0;
  waitpid(child, &state, 0);
  ProcessResult result;
  result.status = WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
  result.out = standardOutput.empty() ? collected.read("out") : "";
  result.err = collected.read("err");
  return result;
}
