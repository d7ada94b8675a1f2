// Files on a POSIX system. Only regular files open; no open can hang. Linux
// alone has the notes (extended attributes), the early start of a flush,
// leases, and locks that belong to an opening of a file.

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/posix/PosixSystem.h"

namespace {

// Of one call; a caller with more hands over the rest with its next one.
constexpr int kMaxParts = 32;
const char kNoteName[] = "user.kqft.receiving";
constexpr std::size_t kLongestNote = 256;

class CPosixFile final : public ISystemFile {
 public:
  CPosixFile(CDescriptor fd, bool append) : m_fd(std::move(fd)), m_bAppend(append) {}

  // Not left to the closing: a copy that a process just being started has of
  // the descriptor would keep the lock, and so may a file system in user space.
  ~CPosixFile() override {
    if (m_bLocked) AskForLock(F_UNLCK);
  }

  ESystemError ReadAt(const SReadPart* parts, int count, std::int64_t position,
                      std::int64_t& bytes) override {
    iovec slices[kMaxParts];
    const int used = std::min(count, kMaxParts);
    for (int i = 0; i < used; ++i) slices[i] = {parts[i].m_pData, parts[i].m_nBytes};
    ssize_t n = -1;
    do {
      n = preadv(m_fd.Get(), slices, used, static_cast<off_t>(position));
    } while (n < 0 && errno == EINTR);
    bytes = std::max<ssize_t>(n, 0);
    return LastError(n < 0);
  }

  ESystemError WriteAt(const char* data, std::size_t size, std::int64_t position,
                       std::int64_t& bytes) override {
    ssize_t n = -1;
    do {
      n = m_bAppend ? write(m_fd.Get(), data, size)
                    : pwrite(m_fd.Get(), data, size, static_cast<off_t>(position));
    } while (n < 0 && errno == EINTR);
    bytes = std::max<ssize_t>(n, 0);
    return LastError(n < 0);
  }

  ESystemError WriteParts(const SWritePart* parts, int count, std::int64_t position,
                          std::int64_t& bytes) override {
    if (m_bAppend) return WriteAt(parts->m_pData, parts->m_nBytes, position, bytes);
    iovec slices[kMaxParts];
    const int used = std::min(count, kMaxParts);
    for (int i = 0; i < used; ++i) {
      slices[i] = {const_cast<char*>(parts[i].m_pData), parts[i].m_nBytes};
    }
    ssize_t n = -1;
    do {
      n = pwritev(m_fd.Get(), slices, used, static_cast<off_t>(position));
    } while (n < 0 && errno == EINTR);
    bytes = std::max<ssize_t>(n, 0);
    return LastError(n < 0);
  }

  ESystemError Flush() override {
    int result = -1;
    do {
      result = fsync(m_fd.Get());
    } while (result < 0 && errno == EINTR);
    m_bMarked = false;
    return LastError(result < 0);
  }

  // A file system in user space may keep what was written to itself: then the
  // kernel has nothing to begin with, and only a flush, during which nobody can
  // write, says that it is written. Every second one is enough: what it brings to
  // the disk is also all that the next call has to wait for.
  ESystemError StartFlush() override {
    if (IsInUserSpace()) {
      m_bMarked = !m_bMarked;
      return m_bMarked ? ESystemError::kNone : Flush();
    }
    constexpr unsigned kWaitThenBegin = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE;
    int result = -1;
    do {
      result = sync_file_range(m_fd.Get(), 0, 0, kWaitThenBegin);  // to the end
    } while (result < 0 && errno == EINTR);
    return LastError(result < 0 && errno != ENOSYS);
  }

  void ReadAhead(std::int64_t bytes) override {
    posix_fadvise(m_fd.Get(), 0, static_cast<off_t>(bytes), POSIX_FADV_WILLNEED);
  }

  ESystemError Resize(std::int64_t bytes) override {
    int result = -1;
    do {
      result = ftruncate(m_fd.Get(), static_cast<off_t>(bytes));
    } while (result < 0 && errno == EINTR);
    return LastError(result < 0);
  }

  ESystemError Lock() override {
    if (AskForLock(F_WRLCK)) {
      m_bLocked = true;
      return ESystemError::kNone;
    }
    if (errno == EAGAIN || errno == EACCES) return ESystemError::kBusy;
    const bool isUnknown = errno == EOPNOTSUPP || errno == ENOLCK || errno == ENOSYS ||
                           errno == EINVAL;  // the last one of old file systems in user space
    return isUnknown ? ESystemError::kUnsupported : ToSystemError(errno);
  }

  ESystemError IsNamed(const std::string& path, bool& is) override {
    is = false;
    std::string native;
    struct stat own = {};
    struct stat found = {};
    if (!ToNativePath(path, native)) return ESystemError::kBadPath;
    if (stat(native.c_str(), &found) != 0) return LastError(errno != ENOENT);
    if (fstat(m_fd.Get(), &own) != 0) return LastError(errno != ENOENT && errno != ESTALE);
    is = own.st_dev == found.st_dev && own.st_ino == found.st_ino;
    return ESystemError::kNone;
  }

  ESystemError Note(std::string& text) override {
    char found[kLongestNote];
    const ssize_t n = fgetxattr(m_fd.Get(), kNoteName, found, sizeof found);
    text.assign(found, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    return LastError(n < 0 && errno != ENODATA && errno != ENOTSUP);
  }

  ESystemError SetNote(const std::string& text) override {
    if (text.empty()) {
      return LastError(fremovexattr(m_fd.Get(), kNoteName) != 0 && errno != ENODATA);
    }
    return LastError(fsetxattr(m_fd.Get(), kNoteName, text.data(), text.size(), 0) != 0);
  }

 private:
  bool IsInUserSpace() const {
    constexpr auto kFuse = static_cast<decltype(statfs::f_type)>(0x65735546);
    struct statfs system = {};
    return fstatfs(m_fd.Get(), &system) == 0 && system.f_type == kFuse;
  }

  bool AskForLock(short kind) const {
    struct flock whole = {};
    whole.l_type = kind;
    whole.l_whence = SEEK_SET;
    int result = -1;
    do {
      result = fcntl(m_fd.Get(), F_OFD_SETLK, &whole);
    } while (result < 0 && errno == EINTR);
    return result == 0;
  }

  // Constant after construction.
  const CDescriptor m_fd;
  const bool m_bAppend;

  bool m_bLocked = false;  // used by whoever opened it
  bool m_bMarked = false;  // the call of StartFlush before has left its data to the next
};

static_assert(sizeof(off_t) == sizeof(std::int64_t), "files beyond 2 GiB");

int OpenFlags(EOpenMode mode) {
  switch (mode) {
    case EOpenMode::kRead:
      return O_RDONLY;
    case EOpenMode::kUpdate:
      return O_RDWR;
    case EOpenMode::kKeep:
    case EOpenMode::kCreate:
      return O_RDWR | O_CREAT;
    case EOpenMode::kCreateNew:
      return O_RDWR | O_CREAT | O_EXCL;
    case EOpenMode::kAppend:
      return O_RDWR | O_CREAT | O_APPEND;
  }
  return O_RDONLY;
}

}  // namespace

ESystemError CPosixSystem::OpenFile(const std::string& path, EOpenMode mode,
                                    std::unique_ptr<ISystemFile>& file) {
  file = nullptr;
  std::string native;
  if (!ToNativePath(path, native)) return ESystemError::kBadPath;
  return OpenFileAt(AT_FDCWD, native.c_str(), mode, 0, file);
}

ESystemError OpenFileAt(int directory, const char* path, EOpenMode mode, int flags,
                        std::unique_ptr<ISystemFile>& file) {
  file = nullptr;
  // O_NONBLOCK: a pipe must be refused below, not waited for. The file is
  // emptied only once it is known to be one.
  CDescriptor fd = OpenDescriptor(directory, path, OpenFlags(mode) | O_NONBLOCK | flags);
  struct stat status = {};
  if (!fd.IsOpen() || fstat(fd.Get(), &status) != 0) return ToSystemError(errno);
  if (!S_ISREG(status.st_mode)) return ESystemError::kNotRegular;
  if (mode == EOpenMode::kCreate && status.st_size > 0 && ftruncate(fd.Get(), 0) != 0) {
    return ToSystemError(errno);
  }
  file = std::make_unique<CPosixFile>(std::move(fd), mode == EOpenMode::kAppend);
  return ESystemError::kNone;
}

ESystemError CPosixSystem::QueryFile(const std::string& path, SFileStatus& status) {
  status = SFileStatus();
  std::string native;
  struct stat found = {};
  if (!ToNativePath(path, native)) return ESystemError::kBadPath;
  if (stat(native.c_str(), &found) != 0) return ToSystemError(errno);
  status.m_bRegular = S_ISREG(found.st_mode);
  status.m_bDirectory = S_ISDIR(found.st_mode);
  if (status.m_bRegular) status.m_llSize = found.st_size;
  return ESystemError::kNone;
}

// A lease for reading is had only while nobody writes. It ends before anybody
// has to wait for it; who asks for the file meanwhile makes the kernel send a
// signal, which is one that does nothing.
ESystemError CPosixSystem::QueryWriters(const std::string& path, bool& any) {
  any = false;
  std::string native;
  if (!ToNativePath(path, native)) return ESystemError::kBadPath;
  const CDescriptor fd = OpenDescriptor(AT_FDCWD, native.c_str(), O_RDONLY | O_NONBLOCK);
  if (!fd.IsOpen() || fcntl(fd.Get(), F_SETSIG, SIGURG) != 0) return ToSystemError(errno);
  if (fcntl(fd.Get(), F_SETLEASE, F_RDLCK) == 0) {
    return LastError(fcntl(fd.Get(), F_SETLEASE, F_UNLCK) != 0);
  }
  any = errno == EAGAIN;
  return LastError(!any);
}

ESystemError CPosixSystem::RemoveFile(const std::string& path) {
  std::string native;
  if (!ToNativePath(path, native)) return ESystemError::kBadPath;
  return LastError(unlink(native.c_str()) != 0);
}

ESystemError CPosixSystem::RenameFile(const std::string& from, const std::string& to) {
  std::string nativeFrom;
  std::string nativeTo;
  if (!ToNativePath(from, nativeFrom) || !ToNativePath(to, nativeTo)) {
    return ESystemError::kBadPath;
  }
  return LastError(rename(nativeFrom.c_str(), nativeTo.c_str()) != 0);
}

ESystemError CPosixSystem::FollowLinks(const std::string& path, std::string& target) {
  target.clear();
  std::string native;
  if (!ToNativePath(path, native)) return ESystemError::kBadPath;
  target = path;
  struct stat status = {};
  if (lstat(native.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return ESystemError::kNone;
  const std::unique_ptr<char, void (*)(void*)> found(realpath(native.c_str(), nullptr), std::free);
  // A name with a "\" in it cannot be passed on: it would be taken for two.
  if (found != nullptr && std::strchr(found.get(), '\\') == nullptr) target = found.get();
  return ESystemError::kNone;
}

ESystemError CPosixSystem::CopyPermissions(const std::string& from, const std::string& to) {
  constexpr mode_t kPermissionBits = 0777;
  std::string nativeFrom;
  std::string nativeTo;
  if (!ToNativePath(from, nativeFrom) || !ToNativePath(to, nativeTo)) {
    return ESystemError::kBadPath;
  }
  struct stat source = {};
  if (stat(nativeFrom.c_str(), &source) != 0) return ToSystemError(errno);
  // Only a privileged process may give a file away; the group alone is the
  // second best, and neither decides the result.
  if (chown(nativeTo.c_str(), source.st_uid, source.st_gid) != 0) {
    [[maybe_unused]] const int unchanged =
        chown(nativeTo.c_str(), static_cast<uid_t>(-1), source.st_gid);
  }
  return LastError(chmod(nativeTo.c_str(), source.st_mode & kPermissionBits) != 0);
}
