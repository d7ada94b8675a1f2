// Programs under test as POSIX processes.

#include "support/Programs.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "transfer/ProjectPath.h"

namespace fs = std::filesystem;

namespace {

int Spawn(const std::string& path, const Arguments& arguments, const std::string& out,
          const std::string& err) {
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
  return failed == 0 ? pid : -1;
}

}  // namespace

std::map<std::string, std::string> ReadTree(const std::string& directory) {
  std::map<std::string, std::string> tree;
  if (!fs::exists(directory)) return tree;
  for (const fs::path& path : fs::recursive_directory_iterator(directory)) {
    if (!fs::is_regular_file(path) || IsOwnFile(path.filename().string())) continue;
    tree[path.lexically_relative(directory).string()] = ReadWholeFile(path.string());
  }
  return tree;
}

CProgram::CProgram(const std::string& path, const Arguments& arguments)
    : m_nPid(Spawn(path, arguments, m_directory / "out", m_directory / "err")) {}

CProgram::~CProgram() {
  if (!IsRunning()) return;
  Signal(SIGKILL);
  Wait();
}

void CProgram::Signal(int number) const {
  if (m_nPid > 0) kill(m_nPid, number);
}

bool CProgram::IsRunning() {
  if (m_nPid < 0) return false;
  int status = 0;
  if (waitpid(m_nPid, &status, WNOHANG) != m_nPid) return true;
  m_nPid = -1;
  m_nStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return false;
}

int CProgram::Wait() {
  return WaitUntil([this] { return !IsRunning(); }) ? m_nStatus : -1;
}

void CServerProgram::Start() {
  Arguments arguments = {"--dir",    m_projects.Path(), "--log-dir", m_logs.Path(),
                         "--listen", "127.0.0.1",       "--port",    std::to_string(m_nPort)};
  arguments.insert(arguments.end(), m_more.begin(), m_more.end());
  m_pProcess = std::make_unique<CProgram>(KQFT_SERVER_PROGRAM, arguments);
  const std::string ready = "listening on 127.0.0.1:";
  ASSERT_TRUE(WaitUntil([&] { return m_pProcess->Error().find('\n') != std::string::npos; }));
  const std::string line = m_pProcess->Error();
  ASSERT_EQ(line.substr(0, ready.size()), ready);
  m_nPort = std::stoi(line.substr(ready.size()));
}

CWorkstation::CWorkstation(int port, const std::string& address) {
  WriteWholeFile(m_directory / "kqft.conf",
                 "# of this workstation\nserver = 127.0.0.1:" + std::to_string(port) +
                     "\nbind = " + address + "\nlog-dir = " + m_directory.Path() + "\n");
}

std::unique_ptr<CProgram> CWorkstation::Start(Arguments arguments) const {
  arguments.insert(arguments.begin(), {"--config", m_directory / "kqft.conf"});
  setenv("XDG_STATE_HOME", m_directory.Path().c_str(), 1);  // where calls of it meet
  return std::make_unique<CProgram>(KQFT_PROGRAM, arguments);
}

std::unique_ptr<CProgram> CWorkstation::Run(const Arguments& arguments) const {
  auto program = Start(arguments);
  program->Wait();
  return program;
}
