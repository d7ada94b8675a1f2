// Confinement on Windows: no rule of the kernel's, but a check of where every
// name leads, in the one place through which all of them go (WindowsPlace), and
// fewer rights for the process.

#include "platform/Confinement.h"

#include <windows.h>

#include <vector>

#include "platform/windows/WindowsPlace.h"

namespace {

// All but the one that every process needs to reach files at all.
bool DropPrivileges() {
  HANDLE opened = nullptr;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES, &opened) == 0) {
    return false;
  }
  const CHandle token(opened);
  DWORD bytes = 0;
  GetTokenInformation(token.Get(), TokenPrivileges, nullptr, 0, &bytes);
  std::vector<LUID> memory(bytes / sizeof(LUID) + 1);
  auto* const privileges = reinterpret_cast<TOKEN_PRIVILEGES*>(memory.data());
  LUID kept = {};
  if (GetTokenInformation(token.Get(), TokenPrivileges, privileges, bytes, &bytes) == 0 ||
      LookupPrivilegeValueW(nullptr, SE_CHANGE_NOTIFY_NAME, &kept) == 0) {
    return false;
  }
  for (DWORD i = 0; i < privileges->PrivilegeCount; ++i) {
    LUID_AND_ATTRIBUTES& one = privileges->Privileges[i];
    const bool isKept = one.Luid.LowPart == kept.LowPart && one.Luid.HighPart == kept.HighPart;
    if (!isKept) one.Attributes = SE_PRIVILEGE_REMOVED;
  }
  return AdjustTokenPrivileges(token.Get(), FALSE, privileges, 0, nullptr, nullptr) != 0;
}

// Systems older than the policy lack it; names are checked there as well.
void ForbidChildren() {
  PROCESS_MITIGATION_CHILD_PROCESS_POLICY policy = {};
  policy.NoChildProcessCreation = 1;
  SetProcessMitigationPolicy(ProcessChildProcessPolicy, &policy, sizeof policy);
}

}  // namespace

std::string ConfineProcess(const SConfinement& confinement) {
  // No thread can have fewer rights than its process: one that removes logs goes
  // by names that no peer has chosen.
  if (confinement.m_bRemoveLogs) return "";
  const ESystemError error = KeepTo({confinement.m_strDataDirectory, confinement.m_strLogDirectory,
                                     confinement.m_strMoreLogDirectory},
                                    confinement.m_bRemoveDirectories);
  if (error != ESystemError::kNone) return "its directories cannot be opened";
  if (!DropPrivileges()) {
    return "its privileges cannot be dropped: error " + std::to_string(GetLastError());
  }
  ForbidChildren();
  return "";
}

const char* ConfinementWord() {
  return "names checked";
}
