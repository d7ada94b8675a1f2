// Programs under test.

#include "support/Programs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

#include "platform/PathBytes.h"
#include "platform/System.h"
#include "transfer/ProjectPath.h"

namespace fs = std::filesystem;

std::map<std::string, std::string> ReadTree(const std::string& directory) {
  std::map<std::string, std::string> tree;
  if (!fs::exists(directory)) return tree;
  for (const fs::path& path : fs::recursive_directory_iterator(PathOf(directory))) {
    const std::string own = BytesOf(path.filename());
    const bool isLeft = own.starts_with(".kqft-");  // of an update, where nothing can be removed
    if (!fs::is_regular_file(path) || IsOwnFile(own) || isLeft) continue;
    std::string name = BytesOf(path.lexically_relative(PathOf(directory)));
    std::replace(name.begin(), name.end(), static_cast<char>(fs::path::preferred_separator), '/');
    tree[name] = ReadWholeFile(BytesOf(path));
  }
  return tree;
}

CProgram::CProgram(const std::string& path, const Arguments& arguments)
    : m_process(StartProcess(path, arguments, m_directory / "out", m_directory / "err")) {}

CProgram::~CProgram() {
  if (!IsRunning()) return;
  Signal(SIGKILL);
  Wait();
}

void CProgram::Signal(int number) const {
  if (m_process != kNoProcess) SignalProcess(m_process, number);
}

bool CProgram::IsRunning() {
  if (m_process == kNoProcess) return false;
  if (!HasProcessEnded(m_process, m_nStatus)) return true;
  m_process = kNoProcess;
  return false;
}

int CProgram::Wait() {
  return WaitUntil([this] { return !IsRunning(); }) ? m_nStatus : -1;
}

void CServerProgram::Start() {
  const std::string projects = m_strShared.empty() ? m_projects.Path() : m_strShared;
  Arguments arguments = {"--dir",    projects,    "--log-dir", m_logs.Path(),
                         "--listen", "127.0.0.1", "--port",    std::to_string(m_nPort)};
  arguments.insert(arguments.end(), m_more.begin(), m_more.end());
  m_pProcess = std::make_unique<CProgram>(KQFT_SERVER_PROGRAM, arguments);
  const std::string ready = "listening on 127.0.0.1:";
  ASSERT_TRUE(WaitUntil([&] { return m_pProcess->Error().find('\n') != std::string::npos; }));
  const std::string line = m_pProcess->Error();
  ASSERT_EQ(line.substr(0, ready.size()), ready);
  m_nPort = std::stoi(line.substr(ready.size()));
}

void CServerProgram::ForgetKilled() {
  const auto isAlone = [this] {
    std::map<std::string, int> links;
    std::istringstream lines(m_pProcess->Output());
    for (std::string line; std::getline(lines, line);) ++links[line.substr(0, line.find(':'))];
    return links["new client"] == links["client disconnect"];
  };
  for (int look = 0; look < 500 && !isAlone(); ++look) System().Sleep(20);
  if (isAlone()) return;
  ASSERT_TRUE(kMayKeepSockets) << m_pProcess->Output();
  m_pProcess->Signal(SIGKILL);
  m_pProcess->Wait();
  Start();
}

CWorkstation::CWorkstation(int port, const std::string& address) {
  WriteWholeFile(m_directory / "kqft.conf",
                 "# of this workstation\nserver = 127.0.0.1:" + std::to_string(port) +
                     "\nbind = " + address + "\nlog-dir = " + m_directory.Path() + "\n");
}

std::unique_ptr<CProgram> CWorkstation::Start(Arguments arguments) const {
  arguments.insert(arguments.begin(), {"--config", m_directory / "kqft.conf"});
  SetEnvironmentWord("XDG_STATE_HOME", m_directory.Path());  // where calls of it meet
  return std::make_unique<CProgram>(KQFT_PROGRAM, arguments);
}

std::unique_ptr<CProgram> CWorkstation::Run(const Arguments& arguments) const {
  auto program = Start(arguments);
  program->Wait();
  return program;
}
