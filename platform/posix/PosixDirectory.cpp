// Directories on a POSIX system: making, listing, free space.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "platform/DirectoryOrder.h"
#include "platform/posix/PosixDirectory.h"
#include "platform/posix/PosixSystem.h"

namespace {

constexpr mode_t kAnyWriteBit = 0222;

// What a listing needs of an entry, whichever call it came from.
struct SEntryStatus {
  mode_t m_nMode = 0;
  std::int64_t m_llSize = 0;
  std::int64_t m_llCreateTime = 0;
};

bool QueryEntry(int directory, const char* name, SEntryStatus& status) {
  struct statx full = {};
  if (statx(directory, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_BASIC_STATS | STATX_BTIME,
            &full) == 0) {
    status.m_nMode = full.stx_mode;
    status.m_llSize = static_cast<std::int64_t>(full.stx_size);
    // Some file systems claim to know the birth and say 0.
    const bool known = (full.stx_mask & STATX_BTIME) != 0 && full.stx_btime.tv_sec != 0;
    status.m_llCreateTime =
        known ? full.stx_btime.tv_sec : std::min(full.stx_ctime.tv_sec, full.stx_mtime.tv_sec);
    return true;
  }
  if (errno != ENOSYS && errno != EPERM) return false;  // else: a kernel or sandbox without statx
  struct stat plain = {};
  if (fstatat(directory, name, &plain, AT_SYMLINK_NOFOLLOW) != 0) return false;
  status.m_nMode = plain.st_mode;
  status.m_llSize = plain.st_size;
  status.m_llCreateTime = std::min(plain.st_ctime, plain.st_mtime);
  return true;
}

unsigned AttributesOf(const char* name, mode_t mode) {
  unsigned attributes = 0;
  if (S_ISDIR(mode)) attributes |= kAttributeDirectory;
  if (S_ISLNK(mode)) attributes |= kAttributeReparsePoint;
  if (name[0] == '.') attributes |= kAttributeHidden;
  if ((mode & kAnyWriteBit) == 0) attributes |= kAttributeReadOnly;
  return attributes == 0 ? kAttributeNormal : attributes;
}

// Appends an entry unless it vanished since the directory was read. One that
// cannot be examined is described by its kind alone.
void AppendEntry(int directory, const dirent& found, std::vector<SDirectoryEntry>& entries) {
  SEntryStatus status;
  if (!QueryEntry(directory, found.d_name, status)) {
    if (errno == ENOENT) return;
    status = SEntryStatus();
    status.m_nMode = static_cast<mode_t>(DTTOIF(found.d_type)) | kAnyWriteBit;
  }
  SDirectoryEntry entry;
  entry.m_strName = found.d_name;
  entry.m_nAttributes = AttributesOf(found.d_name, status.m_nMode);
  if (S_ISREG(status.m_nMode)) entry.m_llSize = status.m_llSize;
  entry.m_llCreateTime = status.m_llCreateTime;
  entries.push_back(std::move(entry));
}

void AppendDotEntry(int directory, const char* name, std::vector<SDirectoryEntry>& entries) {
  SEntryStatus status;
  QueryEntry(directory, name, status);
  SDirectoryEntry entry;
  entry.m_strName = name;
  entry.m_nAttributes = kAttributeDirectory;
  entry.m_llCreateTime = status.m_llCreateTime;
  entries.push_back(std::move(entry));
}

// The path one component shorter, "." or "/" at its end.
std::string ParentOf(const std::string& path) {
  const std::size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return "/";
  const std::size_t slash = path.find_last_of('/', end);
  if (slash == std::string::npos) return ".";
  const std::size_t last = path.find_last_not_of('/', slash);
  return last == std::string::npos ? "/" : path.substr(0, last + 1);
}

}  // namespace

bool IsDotName(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

bool IsRootDirectory(int directory) {
  struct stat own = {};
  struct stat root = {};
  if (fstat(directory, &own) != 0 || stat("/", &root) != 0) return true;  // unsure: refuse
  return own.st_dev == root.st_dev && own.st_ino == root.st_ino;
}

ESystemError OpenBelowRoot(const std::string& path, int flags, CDescriptor& fd) {
  std::string native;
  if (!ToNativePath(path, native)) return ESystemError::kBadPath;
  // With a separator at its end a symbolic link would be followed whatever
  // the flags say.
  const std::size_t last = native.find_last_not_of('/');
  if (last == std::string::npos) return ESystemError::kBadPath;
  native.resize(last + 1);
  fd = OpenDescriptor(AT_FDCWD, native.c_str(), O_RDONLY | O_DIRECTORY | flags);
  if (!fd.IsOpen()) return ToSystemError(errno);
  return IsRootDirectory(fd.Get()) ? ESystemError::kBadPath : ESystemError::kNone;
}

ESystemError CPosixSystem::MakeDirectory(const std::string& path) {
  constexpr mode_t kPermissions = 0777;  // narrowed by the process's umask
  std::string native;
  if (!ToNativePath(path, native)) return ESystemError::kBadPath;
  return mkdir(native.c_str(), kPermissions) == 0 ? ESystemError::kNone : ToSystemError(errno);
}

ESystemError CPosixSystem::RemoveEmptyDirectory(const std::string& path) {
  std::string native;
  if (!ToNativePath(path, native)) return ESystemError::kBadPath;
  if (native.find_first_not_of('/') == std::string::npos) return ESystemError::kBadPath;
  return rmdir(native.c_str()) == 0 ? ESystemError::kNone : ToSystemError(errno);
}

ESystemError CPosixSystem::FlushDirectory(const std::string& path) {
  std::string native;
  if (!ToNativePath(path, native)) return ESystemError::kBadPath;
  const CDescriptor fd = OpenDescriptor(AT_FDCWD, native.c_str(), O_RDONLY | O_DIRECTORY);
  if (!fd.IsOpen()) return ToSystemError(errno);
  int result = -1;
  do {
    result = fsync(fd.Get());
  } while (result < 0 && errno == EINTR);
  const bool done = result == 0 || errno == EINVAL || errno == ENOTSUP;
  return done ? ESystemError::kNone : ToSystemError(errno);
}

ESystemError CPosixSystem::ListDirectory(const std::string& path,
                                         std::vector<SDirectoryEntry>& entries) {
  entries.clear();
  CDescriptor fd;
  const ESystemError error = OpenBelowRoot(path, 0, fd);
  if (error != ESystemError::kNone) return error;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(fd.Get()), closedir);
  if (stream == nullptr) return ToSystemError(errno);
  const int directory = fd.Release();  // the stream's from here on

  AppendDotEntry(directory, ".", entries);
  AppendDotEntry(directory, "..", entries);
  for (;;) {
    errno = 0;
    const dirent* const found = readdir(stream.get());
    if (found == nullptr) break;
    if (!IsDotName(found->d_name)) AppendEntry(directory, *found, entries);
  }
  if (errno != 0) return ToSystemError(errno);
  std::sort(entries.begin() + 2, entries.end(),
            [](const SDirectoryEntry& a, const SDirectoryEntry& b) {
              return IsListedBefore(a.m_strName, b.m_strName);
            });
  return ESystemError::kNone;
}

ESystemError CPosixSystem::QueryFreeSpace(const std::string& path, std::uint64_t& bytes) {
  bytes = 0;
  std::string native;
  if (!ToNativePath(path, native)) return ESystemError::kBadPath;
  struct statvfs space = {};
  while (statvfs(native.c_str(), &space) != 0) {
    if (errno == EINTR) continue;
    const ESystemError error = ToSystemError(errno);
    const std::string parent = ParentOf(native);
    if (error != ESystemError::kNotFound || parent == native) return error;
    native = parent;
  }
  bytes = static_cast<std::uint64_t>(space.f_bfree) * space.f_frsize;
  return ESystemError::kNone;
}
