// Times and modes of files on Windows, which counts in steps of 100 ns from
// 1601, and knows one bit of the modes.

#include <windows.h>

#include "platform/FileLook.h"
#include "platform/FileTimes.h"
#include "platform/PathBytes.h"
#include "platform/windows/WindowsPath.h"
#include "platform/windows/WindowsPlace.h"

namespace {

constexpr std::int64_t kStep = 100;                          // ns
constexpr std::int64_t kStepsTo1970 = 116444736000000000LL;  // from 1601
constexpr unsigned kAnyWriteBit = 0222;
constexpr unsigned kUsualMode = 0644;

std::int64_t Steps(std::int64_t time) {
  return time / kStep - (time % kStep < 0 ? 1 : 0);
}

std::uint64_t Join(DWORD high, DWORD low) {
  return (static_cast<std::uint64_t>(high) << 32) | low;
}

std::int64_t FromFileTime(const FILETIME& time) {
  const auto steps = static_cast<std::int64_t>(Join(time.dwHighDateTime, time.dwLowDateTime));
  const std::int64_t since = steps - kStepsTo1970;
  if (since > INT64_MAX / kStep) return INT64_MAX;
  return since < INT64_MIN / kStep ? INT64_MIN : since * kStep;
}

CHandle OpenFacts(const std::filesystem::path& path, DWORD access, std::error_code& error,
                  DWORD flags = 0) {
  std::wstring native;
  error.clear();
  if (!ToNativePath(ToUtf8(std::filesystem::absolute(path, error).wstring()), native)) {
    SetLastError(ERROR_INVALID_NAME);
    native.clear();
  }
  CHandle handle;
  if (!native.empty()) {
    handle = CHandle(CreateFileW(native.c_str(), access,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                 OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr));
  }
  if (!handle.IsOpen()) error.assign(static_cast<int>(GetLastError()), std::system_category());
  return handle;
}

void Judge(BOOL done, std::error_code& error) {
  if (done == 0) error.assign(static_cast<int>(GetLastError()), std::system_category());
}

}  // namespace

SFileLook LookAtFile(const std::string& path, std::error_code& error, bool follow) {
  SFileLook look;
  const CHandle file = OpenFacts(PathOf(path), FILE_READ_ATTRIBUTES, error,
                                 follow ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
  BY_HANDLE_FILE_INFORMATION found = {};
  if (!error) Judge(GetFileInformationByHandle(file.Get(), &found), error);
  if (error) return look;
  look.m_bRegular =
      (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 && (follow || !IsLink(file.Get()));
  look.m_llSize = static_cast<std::int64_t>(Join(found.nFileSizeHigh, found.nFileSizeLow));
  look.m_llTime = FromFileTime(found.ftLastWriteTime);
  const bool isReadOnly = (found.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
  look.m_nMode = isReadOnly ? kUsualMode & ~kAnyWriteBit : kUsualMode;
  return look;
}

void SetFileTime(const std::filesystem::path& path, std::int64_t time, std::error_code& error) {
  const CHandle file = OpenFacts(path, FILE_WRITE_ATTRIBUTES, error);
  const auto steps = static_cast<std::uint64_t>(Steps(time) + kStepsTo1970);
  const FILETIME written = {static_cast<DWORD>(steps), static_cast<DWORD>(steps >> 32)};
  if (!error) Judge(::SetFileTime(file.Get(), nullptr, nullptr, &written), error);
}

bool IsSameFileTime(std::int64_t a, std::int64_t b) {
  return Steps(a) == Steps(b);
}

void SetFileMode(const std::filesystem::path& path, unsigned mode, std::error_code& error) {
  error.clear();
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return Judge(FALSE, error);
  const auto writable = attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
  const DWORD wanted = (mode & kAnyWriteBit) != 0 ? writable : writable | FILE_ATTRIBUTE_READONLY;
  if (wanted != attributes) Judge(SetFileAttributesW(path.c_str(), wanted), error);
}

// Rights come from the directory; a file that must not be written to is the
// one thing that is carried over.
ESystemError CWindowsSystem::CopyPermissions(const std::string& from, const std::string& to) {
  CPlace source;
  CPlace target;
  ESystemError error = source.Find(from);
  if (error == ESystemError::kNone) error = target.Find(to);
  if (error != ESystemError::kNone) return error;
  const DWORD of = GetFileAttributesW(source.Path().c_str());
  DWORD attributes = GetFileAttributesW(target.Path().c_str());
  if (of == INVALID_FILE_ATTRIBUTES || attributes == INVALID_FILE_ATTRIBUTES) {
    return ToSystemError(GetLastError());
  }
  attributes =
      (attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY)) | (of & FILE_ATTRIBUTE_READONLY);
  return LastError(SetFileAttributesW(target.Path().c_str(), attributes) == 0);
}
