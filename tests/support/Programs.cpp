// Programs under test as POSIX processes.

#include "support/Programs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

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
  pid_t pid = -1;
  const int failed = posix_spawn(&pid, path.c_str(), &files, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  EXPECT_EQ(failed, 0) << path;
  return failed == 0 ? pid : -1;
}

}  // namespace

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

std::int64_t CProgram::MemoryBytes() const {
  const std::string counts = ReadWholeFile("/proc/" + std::to_string(m_nPid) + "/statm");
  return std::stoll(counts.substr(counts.find(' '))) * getpagesize();
}

std::unique_ptr<CProgram> RunProgram(const std::string& path, const Arguments& arguments) {
  auto program = std::make_unique<CProgram>(path, arguments);
  program->Wait();
  return program;
}

void CServerProgram::Start() {
  m_pProcess = std::make_unique<CProgram>(
      KQFT_SERVER_PROGRAM, Arguments{"--dir", m_projects.Path(), "--log-dir", m_logs.Path(),
                                     "--listen", "127.0.0.1", "--port", std::to_string(m_nPort)});
  const std::string ready = "listening on 127.0.0.1:";
  ASSERT_TRUE(WaitUntil([&] { return m_pProcess->Error().find('\n') != std::string::npos; }));
  const std::string line = m_pProcess->Error();
  ASSERT_EQ(line.substr(0, ready.size()), ready);
  m_nPort = std::stoi(line.substr(ready.size()));
}

CWorkstation::CWorkstation(int port, const std::string& address)
    : m_vecCommon{"--server",   "127.0.0.1:" + std::to_string(port), "--bind", address, "--log-dir",
                  m_logs.Path()} {}

std::unique_ptr<CProgram> CWorkstation::Start(const Arguments& arguments) const {
  Arguments all = m_vecCommon;
  all.insert(all.end(), arguments.begin(), arguments.end());
  return std::make_unique<CProgram>(KQFT_PROGRAM, all);
}

std::unique_ptr<CProgram> CWorkstation::Run(const Arguments& arguments) const {
  auto program = Start(arguments);
  program->Wait();
  return program;
}

CServiceManager::CServiceManager() : m_nSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const std::string path = m_directory / "notify";
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  EXPECT_EQ(bind(m_nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  setenv("NOTIFY_SOCKET", path.c_str(), 1);
}

CServiceManager::~CServiceManager() {
  unsetenv("NOTIFY_SOCKET");
  close(m_nSocket);
}

std::string CServiceManager::Next() const {
  constexpr int kLongestWaitMs = 60000;
  pollfd ready = {m_nSocket, POLLIN, 0};
  if (poll(&ready, 1, kLongestWaitMs) != 1) return "";
  char text[256];
  const ssize_t bytes = recv(m_nSocket, text, sizeof(text), 0);
  return std::string(text, static_cast<std::size_t>(std::max<ssize_t>(bytes, 0)));
}
