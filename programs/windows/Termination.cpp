// Termination requests as the console and events bring them: each sets an
// event, for which one thread waits.

#include "programs/Termination.h"

#include <string>

#include "programs/windows/Requests.h"

namespace {

// After a close, a log-off or a shutdown the system ends the process once the
// handler returns, or after some seconds.
constexpr DWORD kPatienceMs = 20000;

struct SRequests {
  HANDLE m_interrupt = nullptr;
  HANDLE m_terminate = nullptr;
  HANDLE m_hangUp = nullptr;  // and the next: null until HoldMoreRequests
  HANDLE m_show = nullptr;
};
SRequests g_requests;  // constant once the two that hold them have returned

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

}  // namespace

HANDLE MakeRequest(const wchar_t* what) {
  const std::wstring name =
      std::wstring(L"Local\\kqft-") + what + L"-" + std::to_wstring(GetCurrentProcessId());
  return CreateEventW(nullptr, FALSE, FALSE, name.c_str());
}

HANDLE InterruptRequest() {
  return g_requests.m_interrupt;
}

HANDLE TerminateRequest() {
  return g_requests.m_terminate;
}

void HoldTermination() {
  if (g_requests.m_interrupt != nullptr) return;
  g_requests.m_interrupt = MakeRequest(L"interrupt");
  g_requests.m_terminate = MakeRequest(L"terminate");
  SetConsoleCtrlHandler(nullptr, FALSE);  // whoever started this may have switched Ctrl-C off
  SetConsoleCtrlHandler(&OnConsole, TRUE);
}

void HoldMoreRequests() {
  g_requests.m_hangUp = MakeRequest(L"hangup");
  g_requests.m_show = MakeRequest(L"show");
}

int WaitForTermination() {
  constexpr int kNumbers[] = {kInterruptSignal, kTerminateSignal, kHangUpSignal, kShowSignal};
  const HANDLE requests[] = {g_requests.m_interrupt, g_requests.m_terminate, g_requests.m_hangUp,
                             g_requests.m_show};
  const DWORD held = g_requests.m_show == nullptr ? 2 : 4;
  const DWORD which = WaitForMultipleObjects(held, requests, FALSE, INFINITE);
  return which < held ? kNumbers[which] : kTerminateSignal;
}

void RequestTermination() {
  SetEvent(g_requests.m_terminate);
}
