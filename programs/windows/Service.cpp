// kqft-server under the service manager of Windows: made a service, taken away,
// started and stopped.

#include <windows.h>

#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/windows/WindowsPath.h"
#include "programs/ExitStatus.h"
#include "programs/ProgramStart.h"
#include "programs/ServiceNotify.h"
#include "programs/Termination.h"
#include "programs/windows/Arguments.h"

namespace {

constexpr wchar_t kServiceName[] = L"kqft-server";
constexpr DWORD kPatienceMs = 10000;  // that the manager has with a start or a stop

// One service a process: constant from the start of its main on, but for the
// state.
struct SService {
  std::vector<std::string> m_vecArguments;
  int (*m_pBody)(int argc, char** argv) = nullptr;
  SERVICE_STATUS_HANDLE m_handle = nullptr;
  DWORD m_nState = SERVICE_STOPPED;
};
SService g_service;

void Report(DWORD state, DWORD code) {
  if (g_service.m_handle == nullptr) return;
  g_service.m_nState = state;
  SERVICE_STATUS status = {};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  const bool isRunning = state == SERVICE_RUNNING;
  status.dwControlsAccepted = isRunning ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
  status.dwWin32ExitCode = code == 0 ? NO_ERROR : ERROR_SERVICE_SPECIFIC_ERROR;
  status.dwServiceSpecificExitCode = code;
  status.dwWaitHint = isRunning || state == SERVICE_STOPPED ? 0 : kPatienceMs;
  SetServiceStatus(g_service.m_handle, &status);
}

DWORD WINAPI OnControl(DWORD control, DWORD, void*, void*) {
  if (control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_SHUTDOWN) {
    Report(SERVICE_STOP_PENDING, 0);
    RequestTermination();
  }
  return NO_ERROR;
}

void TellEventLog(const std::string& text) {
  std::wstring wide;
  HANDLE const log = RegisterEventSourceW(nullptr, kServiceName);
  if (log == nullptr) return;
  if (!ToWide(text, wide)) wide = L"the service failed";
  const wchar_t* strings[] = {wide.c_str()};
  ReportEventW(log, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 1, 0, strings, nullptr);
  DeregisterEventSource(log);
}

// A service has no error stream that anybody reads.
void WINAPI ServiceMain(DWORD, wchar_t**) {
  HoldTermination();
  g_service.m_handle = RegisterServiceCtrlHandlerExW(kServiceName, &OnControl, nullptr);
  Report(SERVICE_START_PENDING, 0);
  std::ostringstream errors;
  std::streambuf* const before = std::cerr.rdbuf(errors.rdbuf());
  const int status = RunBody(g_service.m_vecArguments, g_service.m_pBody);
  std::cerr.rdbuf(before);
  if (status != kExitDone) TellEventLog(errors.str());
  Report(SERVICE_STOPPED, static_cast<DWORD>(status));
}

// As programs take their command lines apart.
std::string Quoted(const std::string& word) {
  std::string quoted = "\"";
  std::size_t backslashes = 0;
  for (const char c : word) {
    if (c == '"') quoted.append(backslashes + 1, '\\');
    backslashes = c == '\\' ? backslashes + 1 : 0;
    quoted += c;
  }
  return quoted.append(backslashes, '\\') + "\"";
}

int Fail(const char* what) {
  std::cerr << std::string("kqft-server: ") + what + ": error " + std::to_string(GetLastError()) +
                   "\n";
  return kExitFailed;
}

// Under an account of its own, which may do nothing but what it is given.
int Install(const std::vector<std::string>& options) {
  std::wstring program(32768, L'\0');
  program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
  std::string line = Quoted(ToUtf8(program)) + " --service";
  for (const std::string& option : options) line += " " + Quoted(option);
  std::wstring wide;
  SC_HANDLE const manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE);
  if (manager == nullptr) return Fail("the service manager cannot be reached");
  SC_HANDLE const service =
      !ToWide(line, wide)
          ? nullptr
          : CreateServiceW(manager, kServiceName, L"Measurement projects (kqft-server)",
                           SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
                           SERVICE_ERROR_NORMAL, wide.c_str(), nullptr, nullptr, nullptr,
                           L"NT SERVICE\\kqft-server", nullptr);
  const int status = service == nullptr ? Fail("cannot be installed") : kExitDone;
  if (service != nullptr) CloseServiceHandle(service);
  CloseServiceHandle(manager);
  return status;
}

int Uninstall() {
  SC_HANDLE const manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  if (manager == nullptr) return Fail("the service manager cannot be reached");
  SC_HANDLE const service = OpenServiceW(manager, kServiceName, SERVICE_STOP | DELETE);
  SERVICE_STATUS stopped = {};
  if (service != nullptr) ControlService(service, SERVICE_CONTROL_STOP, &stopped);
  const bool done = service != nullptr && DeleteService(service) != 0;
  const int status = done ? kExitDone : Fail("cannot be uninstalled");
  if (service != nullptr) CloseServiceHandle(service);
  CloseServiceHandle(manager);
  return status;
}

}  // namespace

int StartServiceProgram(int argc, char** argv, int (*body)(int argc, char** argv)) {
  std::vector<std::string> arguments = CommandLineArguments();
  const std::string first = arguments.size() > 1 ? arguments[1] : "";
  if (first == "--uninstall") return Uninstall();
  if (first == "--install") return Install({arguments.begin() + 2, arguments.end()});
  if (first != "--service") return StartProgram(argc, argv, body);
  arguments.erase(arguments.begin() + 1);
  g_service.m_vecArguments = std::move(arguments);
  g_service.m_pBody = body;
  wchar_t name[sizeof kServiceName / sizeof kServiceName[0]];
  std::memcpy(name, kServiceName, sizeof name);
  const SERVICE_TABLE_ENTRYW table[] = {{name, &ServiceMain}, {nullptr, nullptr}};
  if (StartServiceCtrlDispatcherW(table) == 0) return Fail("no service manager started it");
  return kExitDone;
}

const char* ServiceUsage() {
  return "\n\nAs a service, from a console of an administrator:\n"
         "  kqft-server --install --dir D:\\projects --log-dir D:\\kqft-log\n"
         "  sc start kqft-server\n"
         "  kqft-server --uninstall";
}

void NotifyServiceManager(const std::string& state) {
  if (state == "READY=1") Report(SERVICE_RUNNING, 0);
  if (state == "STOPPING=1") Report(SERVICE_STOP_PENDING, 0);
}

void LeaveService() {
  Report(SERVICE_STOPPED, 0);
}
