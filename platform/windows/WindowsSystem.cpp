// Clock, waits, threads and standard streams of Windows, and what its file and
// directory calls share.

#include "platform/windows/WindowsSystem.h"

#include <process.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <new>
#include <thread>
#include <utility>

#include "platform/windows/WindowsPath.h"

namespace {

constexpr std::chrono::milliseconds kLongPause(20);
constexpr std::chrono::microseconds kAwake(250);
constexpr std::int64_t kTicksPerSecond = 10000000;  // of 100 ns

// Newer than the headers that compilers bring along.
constexpr DWORD kHighResolutionTimer = 0x2;
constexpr DWORD kQuotaExceeded = 1295;

std::string HexText(const FILETIME& time) {
  char text[32];
  std::snprintf(text, sizeof text, "%08lx%08lx", static_cast<unsigned long>(time.dwHighDateTime),
                static_cast<unsigned long>(time.dwLowDateTime));
  return text;
}

// A key that the registry forgets when the system ends, or the user's part of
// it is put away; when it was made tells the runs apart.
std::string ReadBootName() {
  HKEY key = nullptr;
  if (RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\KQFileTransServiceRun", 0, nullptr,
                      REG_OPTION_VOLATILE, KEY_QUERY_VALUE, nullptr, &key,
                      nullptr) != ERROR_SUCCESS) {
    return "";
  }
  FILETIME made = {};
  const bool known = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr, nullptr, nullptr, &made) == ERROR_SUCCESS;
  RegCloseKey(key);
  return known ? HexText(made) : "";
}

// Both, where there are both: copies of one installation have the same id.
std::string ReadMachineName() {
  wchar_t id[128] = L"";
  DWORD bytes = sizeof id - sizeof id[0];
  RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", L"MachineGuid",
               RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, id, &bytes);
  wchar_t host[256] = L"";
  DWORD length = 256;
  if (GetComputerNameExW(ComputerNameDnsHostname, host, &length) == 0) host[0] = L'\0';
  const std::string hostName = ToUtf8(host);
  const std::string idText = ToUtf8(id);
  return hostName.empty() || idText.empty() ? hostName + idText : hostName + "/" + idText;
}

ESystemError WriteAll(HANDLE stream, const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    DWORD n = 0;
    if (WriteFile(stream, text.data() + written, static_cast<DWORD>(text.size() - written), &n,
                  nullptr) == 0) {
      return ToSystemError(GetLastError());
    }
    if (n == 0) return ESystemError::kOther;
    written += n;
  }
  return ESystemError::kNone;
}

// Of the next some milliseconds the usual timer knows only the next 15.
bool SleepExactly(std::chrono::microseconds pause) {
  const CHandle timer(CreateWaitableTimerExW(
      nullptr, nullptr, CREATE_WAITABLE_TIMER_MANUAL_RESET | kHighResolutionTimer,
      TIMER_ALL_ACCESS));
  LARGE_INTEGER due = {};
  due.QuadPart = -10 * pause.count();  // from now on, in 100 ns
  return timer.IsOpen() && SetWaitableTimer(timer.Get(), &due, 0, nullptr, nullptr, FALSE) != 0 &&
         WaitForSingleObject(timer.Get(), INFINITE) == WAIT_OBJECT_0;
}

unsigned WINAPI RunThread(void* body) {
  const std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()>*>(body));
  try {
    (*work)();
  } catch (...) {  // a worker's failure ends the worker, not the host
  }
  return 0;
}

}  // namespace

ISystem& NativeSystem() {
  // Never destroyed: detached threads may use it while the process ends.
  static CWindowsSystem& system = *new CWindowsSystem;
  return system;
}

CHandle& CHandle::operator=(CHandle&& other) noexcept {
  if (this != &other) {
    if (IsOpen()) CloseHandle(m_handle);
    m_handle = other.Release();
  }
  return *this;
}

CHandle::~CHandle() {
  if (IsOpen()) CloseHandle(m_handle);
}

HANDLE CHandle::Release() {
  return std::exchange(m_handle, INVALID_HANDLE_VALUE);
}

ESystemError ToSystemError(DWORD code) {
  switch (code) {
    case ERROR_SUCCESS:
      return ESystemError::kNone;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_DIRECTORY:
    case ERROR_INVALID_DRIVE:
    case ERROR_DELETE_PENDING:
      return ESystemError::kNotFound;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return ESystemError::kExists;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
    case ERROR_PRIVILEGE_NOT_HELD:
      return ESystemError::kAccess;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case kQuotaExceeded:
      return ESystemError::kNoSpace;
    case ERROR_TOO_MANY_OPEN_FILES:
    case ERROR_NO_SYSTEM_RESOURCES:
    case ERROR_NOT_ENOUGH_MEMORY:
      return ESystemError::kTooMany;
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE:
      return ESystemError::kBadPath;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
      return ESystemError::kBusy;
    default:
      return ESystemError::kOther;
  }
}

ESystemError LastError(bool failed) {
  return failed ? ToSystemError(GetLastError()) : ESystemError::kNone;
}

void MakeWritable(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_READONLY) == 0) return;
  SetFileAttributesW(path.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
}

std::int64_t ToUnixSeconds(const FILETIME& time) {
  constexpr std::int64_t kSecondsTo1970 = 11644473600;  // from 1601
  const auto ticks = static_cast<std::int64_t>(
      (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
  return ticks / kTicksPerSecond - kSecondsTo1970;
}

CWindowsSystem::CWindowsSystem()
    : m_startWall(std::chrono::system_clock::now()),
      m_startSteady(std::chrono::steady_clock::now()) {}

// Not asked for while the process starts, when the registry may not be ready.
ESystemError CWindowsSystem::QueryBootName(std::string& name) {
  static const std::string boot = ReadBootName();
  name = boot;
  return name.empty() ? ESystemError::kOther : ESystemError::kNone;
}

ESystemError CWindowsSystem::QueryMachineName(std::string& name) {
  static const std::string machine = ReadMachineName();
  name = machine;
  return name.empty() ? ESystemError::kOther : ESystemError::kNone;
}

std::int64_t CWindowsSystem::SteadyMilliseconds() {
  const auto passed = std::chrono::steady_clock::now() - m_startSteady;
  const auto now = m_startWall.time_since_epoch() + passed;
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

std::int64_t CWindowsSystem::WallSeconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

ESystemError CWindowsSystem::LocalTime(std::int64_t seconds, SCalendarTime& time) {
  const auto moment = static_cast<time_t>(seconds);
  tm local = {};
  time = SCalendarTime();
  if (localtime_s(&local, &moment) != 0) return ESystemError::kOther;
  time.m_nYear = local.tm_year + 1900;
  time.m_nMonth = local.tm_mon + 1;
  time.m_nDay = local.tm_mday;
  time.m_nHour = local.tm_hour;
  time.m_nMinute = local.tm_min;
  time.m_nSecond = local.tm_sec;
  return ESystemError::kNone;
}

// The end of a longer pause is waited for awake, as an idle processor wakes up
// late.
void CWindowsSystem::Sleep(int milliseconds) {
  const std::chrono::milliseconds pause(std::max(milliseconds, 0));
  const auto end = std::chrono::steady_clock::now() + pause;
  const std::chrono::microseconds asleep = pause < kLongPause ? pause : pause - kAwake;
  if (!SleepExactly(asleep)) std::this_thread::sleep_for(asleep);
  while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
}

bool CWindowsSystem::Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                          int milliseconds, const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  return condition.wait_until(lock, deadline, done);
}

// Not by std::thread: below it lies the compiler's imitation of POSIX threads,
// which crashes now and then when a detached one ends while another begins.
ESystemError CWindowsSystem::StartThread(std::function<void()> body) {
  std::unique_ptr<std::function<void()>> owned(new (std::nothrow)
                                                   std::function<void()>(std::move(body)));
  if (owned == nullptr) return ESystemError::kTooMany;
  const CHandle thread(
      reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &RunThread, owned.get(), 0, nullptr)));
  if (!thread.IsOpen()) return ESystemError::kTooMany;
  owned.release();  // the thread's
  return ESystemError::kNone;
}

// A console is written to in its own characters, whatever its code page.
ESystemError CWindowsSystem::WriteStandard(bool errorStream, const std::string& text) {
  HANDLE const stream = GetStdHandle(errorStream ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  std::wstring wide;
  if (GetConsoleMode(stream, &mode) == 0 || !ToWide(text, wide)) return WriteAll(stream, text);
  DWORD written = 0;
  return LastError(
      WriteConsoleW(stream, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr) == 0);
}
