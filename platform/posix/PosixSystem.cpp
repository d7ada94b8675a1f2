// Clock, waits, threads and standard streams of a POSIX system, and what its
// file and directory calls share.

#include "platform/posix/PosixSystem.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <thread>
#include <utility>

namespace {

constexpr int kFirstOrdinaryDescriptor = 3;

constexpr std::chrono::milliseconds kLongPause(20);
constexpr std::chrono::microseconds kAwake(250);

// Blocks signals of the calling thread for a scope; a thread started in it
// inherits that.
class CBlockedSignals {
 public:
  explicit CBlockedSignals(const sigset_t& signals) {
    pthread_sigmask(SIG_BLOCK, &signals, &m_before);
  }
  CBlockedSignals(const CBlockedSignals&) = delete;
  CBlockedSignals& operator=(const CBlockedSignals&) = delete;
  ~CBlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

 private:
  sigset_t m_before;
};

// Every signal but those that a fault of the thread itself raises: blocking
// them would only take the fault away from the host's crash handler.
sigset_t SignalsForOthers() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
    sigdelset(&signals, fault);
  }
  return signals;
}

bool IsPending(int signal) {
  sigset_t pending;
  return sigpending(&pending) == 0 && sigismember(&pending, signal) == 1;
}

// The first bytes of a file; "" when it holds fewer.
std::string ReadBytes(const char* path, std::size_t bytes) {
  const CDescriptor fd = OpenDescriptor(AT_FDCWD, path, O_RDONLY);
  std::string text(bytes, '\0');
  const bool whole = fd.IsOpen() && read(fd.Get(), text.data(), bytes) == std::ssize(text);
  return whole ? text : "";
}

// Linux alone has it.
std::string ReadBootName() {
  constexpr std::size_t kNameBytes = 36;
  return ReadBytes("/proc/sys/kernel/random/boot_id", kNameBytes);
}

// Both, where there are both: copies of one installation have the same id, and
// many containers none.
std::string ReadMachineName() {
  constexpr std::size_t kIdBytes = 32;
  utsname names = {};
  const std::string host = uname(&names) == 0 ? names.nodename : "";
  const std::string id = ReadBytes("/etc/machine-id", kIdBytes);
  return host.empty() || id.empty() ? host + id : host + "/" + id;
}

ESystemError WriteAll(int fd, const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t n = write(fd, text.data() + written, text.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n < 0 ? ToSystemError(errno) : ESystemError::kOther;
    written += static_cast<std::size_t>(n);
  }
  return ESystemError::kNone;
}

}  // namespace

ISystem& NativeSystem() {
  // Never destroyed: detached threads may use it while the process ends.
  static CPosixSystem& system = *new CPosixSystem;
  return system;
}

CDescriptor& CDescriptor::operator=(CDescriptor&& other) noexcept {
  if (this != &other) {
    if (m_nFd >= 0) close(m_nFd);
    m_nFd = other.Release();
  }
  return *this;
}

CDescriptor::~CDescriptor() {
  if (m_nFd >= 0) close(m_nFd);
}

int CDescriptor::Release() {
  return std::exchange(m_nFd, -1);
}

CDescriptor OpenDescriptor(int directory, const char* path, int flags) {
  constexpr mode_t kPermissions = 0666;  // narrowed by the process's umask
  int fd = -1;
  do {
    fd = openat(directory, path, flags | O_CLOEXEC | O_NOCTTY, kPermissions);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0 || fd >= kFirstOrdinaryDescriptor) return CDescriptor(fd);
  const CDescriptor low(fd);
  return CDescriptor(fcntl(fd, F_DUPFD_CLOEXEC, kFirstOrdinaryDescriptor));
}

bool ToNativePath(const std::string& path, std::string& native) {
  if (path.empty() || path.find('\0') != std::string::npos) return false;
  native = path;
  std::replace(native.begin(), native.end(), '\\', '/');
  return true;
}

ESystemError ToSystemError(int number) {
  switch (number) {
    case 0:
      return ESystemError::kNone;
    case ENOENT:
    case ENOTDIR:
      return ESystemError::kNotFound;
    case EEXIST:
      return ESystemError::kExists;
    case EACCES:
    case EPERM:
    case EROFS:
      return ESystemError::kAccess;
    case ENOSPC:
    case EDQUOT:
      return ESystemError::kNoSpace;
    case EMFILE:
    case ENFILE:
      return ESystemError::kTooMany;
    case EISDIR:
    case ENXIO:
      return ESystemError::kNotRegular;
    case ENAMETOOLONG:
      return ESystemError::kBadPath;
    default:
      return ESystemError::kOther;
  }
}

ESystemError LastError(bool failed) {
  return failed ? ToSystemError(errno) : ESystemError::kNone;
}

CPosixSystem::CPosixSystem()
    : m_strBootName(ReadBootName()),
      m_strMachineName(ReadMachineName()),
      m_startWall(std::chrono::system_clock::now()),
      m_startSteady(std::chrono::steady_clock::now()) {}

ESystemError CPosixSystem::QueryBootName(std::string& name) {
  name = m_strBootName;
  return name.empty() ? ESystemError::kOther : ESystemError::kNone;
}

ESystemError CPosixSystem::QueryMachineName(std::string& name) {
  name = m_strMachineName;
  return name.empty() ? ESystemError::kOther : ESystemError::kNone;
}

std::int64_t CPosixSystem::SteadyMilliseconds() {
  const auto passed = std::chrono::steady_clock::now() - m_startSteady;
  const auto now = m_startWall.time_since_epoch() + passed;
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

std::int64_t CPosixSystem::WallSeconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

ESystemError CPosixSystem::LocalTime(std::int64_t seconds, SCalendarTime& time) {
  const auto moment = static_cast<time_t>(seconds);
  tm local = {};
  time = SCalendarTime();
  if (localtime_r(&moment, &local) == nullptr) return ToSystemError(errno);
  time.m_nYear = local.tm_year + 1900;
  time.m_nMonth = local.tm_mon + 1;
  time.m_nDay = local.tm_mday;
  time.m_nHour = local.tm_hour;
  time.m_nMinute = local.tm_min;
  time.m_nSecond = local.tm_sec;
  return ESystemError::kNone;
}

// An idle processor wakes up late, on a virtual machine by some 0.2 ms. That
// adds up where a pause belongs to every file, so that the end of a longer one
// is waited for awake.
void CPosixSystem::Sleep(int milliseconds) {
  const std::chrono::milliseconds pause(std::max(milliseconds, 0));
  const auto end = std::chrono::steady_clock::now() + pause;
  std::this_thread::sleep_for(pause < kLongPause ? pause : pause - kAwake);
  while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
}

bool CPosixSystem::Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                        int milliseconds, const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  return condition.wait_until(lock, deadline, done);
}

ESystemError CPosixSystem::StartThread(std::function<void()> body) {
  try {
    const CBlockedSignals blocked(SignalsForOthers());
    std::thread([work = std::move(body)] {
      try {
        work();
      } catch (...) {  // a worker's failure ends the worker, not the host
      }
    }).detach();
    return ESystemError::kNone;
  } catch (const std::exception&) {
    return ESystemError::kTooMany;
  }
}

ESystemError CPosixSystem::WriteStandard(bool errorStream, const std::string& text) {
  sigset_t pipeSignal;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  const CBlockedSignals blocked(pipeSignal);
  const bool pendingBefore = IsPending(SIGPIPE);
  const ESystemError error = WriteAll(errorStream ? STDERR_FILENO : STDOUT_FILENO, text);
  if (!pendingBefore && IsPending(SIGPIPE)) {
    // Ours: taken away before the mask opens, so that the host never sees it.
    const timespec atOnce = {};
    sigtimedwait(&pipeSignal, nullptr, &atOnce);
  }
  return error;
}
