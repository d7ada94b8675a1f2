// Work in an open directory of a POSIX system. Linux alone renames without
// replacing in one step.

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/ExpertUtils.h"
#include "platform/posix/PosixDirectory.h"

namespace {

class CPosixDirectory final : public ISystemDirectory {
 public:
  explicit CPosixDirectory(CDescriptor fd) : m_fd(std::move(fd)) {}

  ESystemError OpenFile(const std::string& name, EOpenMode mode,
                        std::unique_ptr<ISystemFile>& file) override {
    return OpenFileAt(m_fd.Get(), name.c_str(), mode, O_NOFOLLOW, file);
  }

  ESystemError QueryFile(const std::string& name, SFileLook& look) override {
    struct stat status = {};
    const int result = fstatat(m_fd.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
    look = result == 0 ? ToLook(status) : SFileLook();
    return LastError(result != 0);
  }

  ESystemError RemoveFile(const std::string& name) override {
    return LastError(unlinkat(m_fd.Get(), name.c_str(), 0) != 0);
  }

  // A file system that cannot do both in one step does them in two.
  ESystemError RenameFile(const std::string& from, const std::string& to, bool replace) override {
    const int fd = m_fd.Get();
    if (!replace) {
      if (renameat2(fd, from.c_str(), fd, to.c_str(), RENAME_NOREPLACE) == 0) {
        return ESystemError::kNone;
      }
      if (errno != EINVAL && errno != ENOSYS) return ToSystemError(errno);
      struct stat status = {};
      if (fstatat(fd, to.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return ESystemError::kExists;
    }
    return LastError(renameat(fd, from.c_str(), fd, to.c_str()) != 0);
  }

  ESystemError SetTime(const std::string& name, std::int64_t time) override {
    constexpr std::int64_t kSecond = 1000000000;
    const std::int64_t rest = (time % kSecond + kSecond) % kSecond;
    const timespec times[] = {{0, UTIME_OMIT}, {(time - rest) / kSecond, rest}};
    return LastError(utimensat(m_fd.Get(), name.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0);
  }

  // There is no call for it that follows no link, but by an open file.
  ESystemError SetMode(const std::string& name, unsigned mode) override {
    const CDescriptor fd =
        OpenDescriptor(m_fd.Get(), name.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW);
    return LastError(!fd.IsOpen() || fchmod(fd.Get(), mode) != 0);
  }

 private:
  const CDescriptor m_fd;  // constant after construction
};

// The next part of a path below another one.
ESystemError Descend(const std::string& name, bool make, CDescriptor& fd) {
  constexpr mode_t kPermissions = 0777;  // narrowed by the process's umask
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
  CDescriptor next = OpenDescriptor(fd.Get(), name.c_str(), kFlags);
  if (!next.IsOpen() && errno == ENOENT && make) {
    if (mkdirat(fd.Get(), name.c_str(), kPermissions) != 0 && errno != EEXIST) {
      return ToSystemError(errno);
    }
    next = OpenDescriptor(fd.Get(), name.c_str(), kFlags);
  }
  // Which it is of a link, too.
  if (!next.IsOpen()) return errno == ENOTDIR ? ESystemError::kNotRegular : ToSystemError(errno);
  fd = std::move(next);
  return ESystemError::kNone;
}

}  // namespace

ESystemError CPosixSystem::OpenDirectory(const std::string& top, const std::string& below,
                                         bool make, std::unique_ptr<ISystemDirectory>& directory) {
  directory = nullptr;
  std::string native;
  if (!ToNativePath(top, native) || below.find('\0') != std::string::npos) {
    return ESystemError::kBadPath;
  }
  CDescriptor fd = OpenDescriptor(AT_FDCWD, native.c_str(), O_RDONLY | O_DIRECTORY);
  if (!fd.IsOpen() && errno == ENOENT && make) {
    EU::CExpertUtils::CreateAllDir(native + "/");
    fd = OpenDescriptor(AT_FDCWD, native.c_str(), O_RDONLY | O_DIRECTORY);
  }
  if (!fd.IsOpen()) return ToSystemError(errno);
  for (std::size_t begin = 0; begin < below.size();) {
    const std::size_t end = std::min(below.find('/', begin), below.size());
    const ESystemError error = Descend(below.substr(begin, end - begin), make, fd);
    if (error != ESystemError::kNone) return error;
    begin = end + 1;
  }
  directory = std::make_unique<CPosixDirectory>(std::move(fd));
  return ESystemError::kNone;
}
