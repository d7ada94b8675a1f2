// Processes of a POSIX system.

#include "support/Processes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

static_assert(SIGINT == 2 && SIGKILL == 9 && SIGTERM == 15);

std::intptr_t StartProcess(const std::string& path, const std::vector<std::string>& arguments,
                           const std::string& out, const std::string& err) {
  std::vector<char*> argv = {const_cast<char*>(path.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT, 0600);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT, 0600);
  // A search for leaks at the end reads /proc, which a confined server cannot.
  const bool reads =
      std::find(arguments.begin(), arguments.end(), "--dir") == arguments.end() ||
      std::find(arguments.begin(), arguments.end(), "--no-confine") != arguments.end();
  setenv("LSAN_OPTIONS", reads ? "detect_leaks=1" : "detect_leaks=0", 1);
  sigset_t usual;  // whoever started the tests may have wanted some ignored
  sigfillset(&usual);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t pid = -1;
  const int failed = posix_spawn(&pid, path.c_str(), &files, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  EXPECT_EQ(failed, 0) << path;
  return failed == 0 ? pid : kNoProcess;
}

void SignalProcess(std::intptr_t process, int number) {
  kill(static_cast<pid_t>(process), number);
}

bool HasProcessEnded(std::intptr_t process, int& status) {
  int how = 0;
  const auto pid = static_cast<pid_t>(process);
  if (waitpid(pid, &how, WNOHANG) != pid) return false;
  status = WIFEXITED(how) ? WEXITSTATUS(how) : 128 + WTERMSIG(how);
  return true;
}

void SetEnvironmentWord(const char* name, const std::string& value) {
  setenv(name, value.c_str(), 1);
}
