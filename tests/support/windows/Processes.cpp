// Processes of Windows: named events stand for the signals that a program
// takes, suspension and ending from outside for the others.

#include "support/Processes.h"

#include <windows.h>

#include <algorithm>

#include "platform/windows/WindowsPath.h"

namespace {

std::wstring Wide(const std::string& text) {
  std::wstring wide;
  ToWide(text, wide);
  return wide;
}

// As programs take their command lines apart; no argument of a test holds a
// quotation mark, and those that end with a backslash get another one.
std::string Quoted(const std::string& word) {
  return "\"" + word + (!word.empty() && word.back() == '\\' ? "\\\"" : "\"");
}

HANDLE OpenOutput(const std::string& path) {
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  return CreateFileW(Wide(path).c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                     &inherited, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Of ntdll, in all versions.
void SetSuspended(HANDLE process, bool suspended) {
  using Change = LONG(WINAPI*)(HANDLE);
  HMODULE const ntdll = GetModuleHandleW(L"ntdll.dll");
  const char* const name = suspended ? "NtSuspendProcess" : "NtResumeProcess";
  reinterpret_cast<Change>(reinterpret_cast<void*>(GetProcAddress(ntdll, name)))(process);
}

void Request(HANDLE process, const wchar_t* what) {
  const std::wstring name =
      std::wstring(L"Local\\kqft-") + what + L"-" + std::to_wstring(GetProcessId(process));
  HANDLE const event = OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str());
  SetEvent(event);
  CloseHandle(event);
}

}  // namespace

std::intptr_t StartProcess(const std::string& path, const std::vector<std::string>& arguments,
                           const std::string& out, const std::string& err) {
  std::string line = Quoted(path);
  for (const std::string& argument : arguments) line += " " + Quoted(argument);
  std::wstring wide = Wide(line);
  STARTUPINFOW start = {};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = INVALID_HANDLE_VALUE;
  start.hStdOutput = OpenOutput(out);
  start.hStdError = OpenOutput(err);
  PROCESS_INFORMATION made = {};
  const bool done = CreateProcessW(nullptr, wide.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                   nullptr, &start, &made) != 0;
  CloseHandle(start.hStdOutput);
  CloseHandle(start.hStdError);
  if (!done) return kNoProcess;
  CloseHandle(made.hThread);
  return reinterpret_cast<std::intptr_t>(made.hProcess);
}

void SignalProcess(std::intptr_t process, int number) {
  auto* const handle = reinterpret_cast<HANDLE>(process);
  if (number == SIGKILL) TerminateProcess(handle, 128 + SIGKILL);
  if (number == SIGSTOP || number == SIGCONT) SetSuspended(handle, number == SIGSTOP);
  if (number == SIGINT) Request(handle, L"interrupt");
  if (number == SIGTERM) Request(handle, L"terminate");
  if (number == SIGHUP) Request(handle, L"hangup");
  if (number == SIGUSR1) Request(handle, L"show");
}

bool HasProcessEnded(std::intptr_t process, int& status) {
  auto* const handle = reinterpret_cast<HANDLE>(process);
  if (WaitForSingleObject(handle, 0) != WAIT_OBJECT_0) return false;
  DWORD code = 0;
  GetExitCodeProcess(handle, &code);
  status = static_cast<int>(code);
  CloseHandle(handle);
  return true;
}

void SetEnvironmentWord(const char* name, const std::string& value) {
  SetEnvironmentVariableW(Wide(name).c_str(), Wide(value).c_str());
}
