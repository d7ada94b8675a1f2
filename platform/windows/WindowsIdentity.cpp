// Who runs this program.

#include <windows.h>

#include <lmcons.h>

#include "platform/Identity.h"
#include "platform/windows/WindowsPath.h"

std::string UserAtHost() {
  wchar_t user[UNLEN + 1] = L"";
  DWORD length = UNLEN + 1;
  std::string name = GetUserNameW(user, &length) != 0 ? ToUtf8(user) : "unknown";
  wchar_t host[256] = L"";
  length = 256;
  const bool known = GetComputerNameExW(ComputerNameDnsHostname, host, &length) != 0;
  return name + "@" + (known && host[0] != L'\0' ? ToUtf8(host) : "unknown");
}

int ProcessId() {
  return static_cast<int>(GetCurrentProcessId());
}
