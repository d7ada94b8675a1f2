// Confinement by Landlock, rule sets of the Linux kernel that a process puts
// on itself.
//
// Kernels differ in which rights they know; asking for an unknown one fails.
// So every right is cut down to what the version that the kernel answers
// knows. The structures are written down here, in the form that all versions
// share, because system headers are often older than the kernel.

#include "platform/Confinement.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/posix/PosixSystem.h"

namespace {

// The same numbers on every architecture.
constexpr long kCreateRuleset = 444;
constexpr long kAddRule = 445;
constexpr long kRestrictSelf = 446;

constexpr unsigned kAskVersion = 1;
constexpr int kPathRule = 1;
constexpr int kPortRule = 2;

// Rights on files and directories.
constexpr std::uint64_t kWriteFile = 1ULL << 1;
constexpr std::uint64_t kReadFile = 1ULL << 2;
constexpr std::uint64_t kReadDirectory = 1ULL << 3;
constexpr std::uint64_t kRemoveDirectory = 1ULL << 4;
constexpr std::uint64_t kRemoveFile = 1ULL << 5;
constexpr std::uint64_t kMakeDirectory = 1ULL << 7;
constexpr std::uint64_t kMakeFile = 1ULL << 8;
constexpr std::uint64_t kTruncate = 1ULL << 14;

// Rights on ports, and what lies outside the process besides files.
constexpr std::uint64_t kBindPort = 1ULL << 0;
constexpr std::uint64_t kConnectPort = 1ULL << 1;
constexpr std::uint64_t kAbstractSockets = 1ULL << 0;
constexpr std::uint64_t kSignals = 1ULL << 1;

struct SRuleset {
  std::uint64_t m_ullFiles;
  std::uint64_t m_ullPorts;   // from version 4
  std::uint64_t m_ullScopes;  // from version 6
};

struct __attribute__((packed)) SPathRule {
  std::uint64_t m_ullAllowed;
  std::int32_t m_nDirectory;
};
static_assert(sizeof(SPathRule) == 12);

struct SPortRule {
  std::uint64_t m_ullAllowed;
  std::uint64_t m_ullPort;
};

// Every right that a version knows. All of them are taken away; executing,
// devices, links and moves between directories are not given back anywhere.
SRuleset KnownTo(long version) {
  constexpr int kFirstVersionRights = 13;
  int rights = kFirstVersionRights;
  if (version >= 2) rights = 14;  // moves between directories
  if (version >= 3) rights = 15;  // truncating
  if (version >= 5) rights = 16;  // device control
  SRuleset known = {(1ULL << rights) - 1, 0, 0};
  if (version >= 4) known.m_ullPorts = kBindPort | kConnectPort;
  if (version >= 6) known.m_ullScopes = kAbstractSockets | kSignals;
  return known;
}

// A kernel takes a longer structure than its own only when the rest is 0.
CDescriptor MakeRuleset(const SRuleset& ruleset) {
  return CDescriptor(static_cast<int>(syscall(kCreateRuleset, &ruleset, sizeof ruleset, 0U)));
}

bool AddRule(const CDescriptor& ruleset, int kind, const void* rule) {
  return syscall(kAddRule, ruleset.Get(), kind, rule, 0U) == 0;
}

bool AllowBelow(const CDescriptor& ruleset, const std::string& path, std::uint64_t rights) {
  std::string native;
  if (!ToNativePath(path, native)) {
    errno = ENOENT;
    return false;
  }
  const CDescriptor directory = OpenDescriptor(AT_FDCWD, native.c_str(), O_PATH | O_DIRECTORY);
  if (!directory.IsOpen()) return false;
  const SPathRule rule = {rights, directory.Get()};
  return AddRule(ruleset, kPathRule, &rule);
}

bool AllowPort(const CDescriptor& ruleset, int port) {
  const SPortRule rule = {kBindPort, static_cast<std::uint64_t>(port)};
  return AddRule(ruleset, kPortRule, &rule);
}

std::string Why(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

}  // namespace

std::string ConfineProcess(const SConfinement& confinement) {
  const long version = syscall(kCreateRuleset, nullptr, std::size_t{0}, kAskVersion);
  if (version < 1) return Why("this kernel offers no Landlock");
  SRuleset ruleset = KnownTo(version);
  if (confinement.m_bAbstractSockets) ruleset.m_ullScopes &= ~kAbstractSockets;

  const std::uint64_t files = kReadFile | kWriteFile | kMakeFile;
  const std::uint64_t log = confinement.m_bRemoveLogs ? kReadDirectory | kRemoveFile : files;
  std::uint64_t data = files | kReadDirectory | kMakeDirectory | kRemoveFile | kTruncate;
  if (confinement.m_bRemoveDirectories) data |= kRemoveDirectory;

  const CDescriptor rules = MakeRuleset(ruleset);
  if (!rules.IsOpen()) return Why("Landlock takes no rules");
  for (const auto& [directory, rights] : {std::pair(confinement.m_strDataDirectory, data),
                                          std::pair(confinement.m_strLogDirectory, log),
                                          std::pair(confinement.m_strMoreLogDirectory, log)}) {
    if (!directory.empty() && !AllowBelow(rules, directory, rights & ruleset.m_ullFiles)) {
      return Why("no Landlock rule for " + directory);
    }
  }
  if (ruleset.m_ullPorts != 0 && !AllowPort(rules, confinement.m_nListenPort)) {
    return Why("no Landlock rule for the port");
  }
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return Why("rights may come back");
  if (syscall(kRestrictSelf, rules.Get(), 0U) != 0) return Why("Landlock refuses its rules");
  return "";
}

const char* ConfinementWord() {
  return "confined";
}
