// Termination requests as the console and events bring them: each sets an
// event, for which one thread waits.

#include "programs/Termination.h"

#include <windows.h>

#include <string>

namespace {

// After a close, a log-off or a shutdown the system ends the process once the
// handler returns, or after some seconds.
constexpr DWORD kPatienceMs = 20000;

struct SRequests {
  HANDLE m_interrupt = nullptr;
  HANDLE m_terminate = nullptr;
};
SRequests g_requests;  // constant once HoldTermination has returned

BOOL WINAPI OnConsole(DWORD what) {
  switch (what) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT:
      return SetEvent(g_requests.m_interrupt);
    case CTRL_CLOSE_EVENT:
      SetEvent(g_requests.m_interrupt);
      Sleep(kPatienceMs);
      return TRUE;
    case CTRL_SHUTDOWN_EVENT:
      SetEvent(g_requests.m_terminate);
      Sleep(kPatienceMs);
      return TRUE;
    default:
      return FALSE;  // somebody logs off, which concerns no service
  }
}

// Others of the same user ask by the name.
HANDLE MakeRequest(const wchar_t* what) {
  const std::wstring name =
      std::wstring(L"Local\\kqft-") + what + L"-" + std::to_wstring(GetCurrentProcessId());
  return CreateEventW(nullptr, FALSE, FALSE, name.c_str());
}

}  // namespace

void HoldTermination() {
  if (g_requests.m_interrupt != nullptr) return;
  g_requests = {MakeRequest(L"interrupt"), MakeRequest(L"terminate")};
  SetConsoleCtrlHandler(nullptr, FALSE);  // whoever started this may have switched Ctrl-C off
  SetConsoleCtrlHandler(&OnConsole, TRUE);
}

int WaitForTermination() {
  const HANDLE requests[] = {g_requests.m_interrupt, g_requests.m_terminate};
  const DWORD which = WaitForMultipleObjects(2, requests, FALSE, INFINITE);
  return which == WAIT_OBJECT_0 ? kInterruptSignal : kTerminateSignal;
}

void RequestTermination() {
  SetEvent(g_requests.m_terminate);
}
