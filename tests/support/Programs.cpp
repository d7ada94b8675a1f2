// Programs under test as POSIX processes.

#include "support/Programs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

static_assert(kInterrupt == SIGINT && kKill == SIGKILL && kTerminate == SIGTERM);
static_assert(kContinue == SIGCONT && kHalt == SIGSTOP);

int Spawn(const std::string& path, const std::vector<std::string>& arguments,
          const std::string& out, const std::string& err) {
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

CProgram::CProgram(const std::string& path, const std::vector<std::string>& arguments)
    : m_nPid(Spawn(path, arguments, m_directory / "out", m_directory / "err")) {}

CProgram::~CProgram() {
  if (!IsRunning()) return;
  Signal(kKill);
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
  const std::size_t resident = counts.find(' ');
  EXPECT_NE(resident, std::string::npos);
  return resident == std::string::npos ? 0 : std::stoll(counts.substr(resident)) * getpagesize();
}

CServerProgram::CServerProgram() {
  Start(0);
}

void CServerProgram::Restart() {
  Start(m_nPort);
}

void CServerProgram::Start(int port) {
  m_pProcess = std::make_unique<CProgram>(
      KQFT_SERVER_PROGRAM,
      std::vector<std::string>{"--dir", m_projects.Path(), "--log-dir", m_logs.Path(), "--listen",
                               "127.0.0.1", "--port", std::to_string(port)});
  const std::string ready = "listening on 127.0.0.1:";
  std::string line;
  ASSERT_TRUE(WaitUntil([&] {
    line = m_pProcess->Error();
    return line.find('\n') != std::string::npos;
  }));
  ASSERT_EQ(line.compare(0, ready.size(), ready), 0) << line;
  m_nPort = std::stoi(line.substr(ready.size()));
}

CWorkstation::CWorkstation(const CServerProgram& server, const std::string& address)
    : m_strPlace(server.Place()), m_strAddress(address) {}

std::unique_ptr<CProgram> CWorkstation::Start(const std::vector<std::string>& arguments) const {
  std::vector<std::string> all = {"--server",   m_strPlace,  "--bind",
                                  m_strAddress, "--log-dir", m_logs.Path()};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return std::make_unique<CProgram>(KQFT_PROGRAM, all);
}

SRun CWorkstation::Run(const std::vector<std::string>& arguments) const {
  const auto start = std::chrono::steady_clock::now();
  const std::unique_ptr<CProgram> program = Start(arguments);
  SRun run;
  run.m_nStatus = program->Wait();
  run.m_took = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - start);
  run.m_strOutput = program->Output();
  run.m_strError = program->Error();
  return run;
}

SRun RunProgram(const std::string& path, const std::vector<std::string>& arguments) {
  CProgram program(path, arguments);
  SRun run;
  run.m_nStatus = program.Wait();
  run.m_strOutput = program.Output();
  run.m_strError = program.Error();
  return run;
}

void MakeSparseFile(const std::string& path, std::int64_t bytes) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path).flush();
  fs::resize_file(path, static_cast<std::uintmax_t>(bytes));
}

std::vector<std::pair<std::string, std::string>> TreeOf(const std::string& directory) {
  std::vector<std::pair<std::string, std::string>> tree;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    if (!entry.is_regular_file()) continue;
    tree.emplace_back(fs::path(entry.path()).lexically_relative(directory).string(),
                      ReadWholeFile(entry.path().string()));
  }
  std::sort(tree.begin(), tree.end());
  return tree;
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
