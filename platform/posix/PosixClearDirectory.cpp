// Clearing a directory: deletes what is in it and nothing outside.
//
// Works on descriptors and raw names, never on joined paths, so neither a
// symbolic link nor a name with a "\" in it leads out. Keeps one descriptor
// open however deep the tree is, and checks on every step up that it arrives
// where it came from.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/posix/PosixDirectory.h"
#include "platform/posix/PosixSystem.h"

namespace {

// One directory on the way from the cleared one down to the current one.
struct SLevel {
  std::string m_strName;               // under which its parent knows it
  dev_t m_nDevice = 0;                 // with the next: which directory it is
  ino_t m_nInode = 0;                  //
  std::vector<std::string> m_vecLeft;  // its subdirectories still to be cleared
};

class CDirectoryClearer {
 public:
  explicit CDirectoryClearer(CDescriptor directory) : m_current(std::move(directory)) {}

  ESystemError Run() {
    if (!Enter("")) return m_error;
    while (!m_vecLevels.empty()) {
      std::vector<std::string>& left = m_vecLevels.back().m_vecLeft;
      if (left.empty()) {
        if (!Ascend()) break;
        continue;
      }
      const std::string name = std::move(left.back());
      left.pop_back();
      Descend(name);
    }
    return m_error;
  }

 private:
  void Note(int number) {
    if (m_error == ESystemError::kNone) m_error = ToSystemError(number);
  }

  // Makes the directory in m_current a level and deletes its files.
  bool Enter(const std::string& name) {
    struct stat status = {};
    if (fstat(m_current.Get(), &status) != 0) {
      Note(errno);
      return false;
    }
    SLevel level;
    level.m_strName = name;
    level.m_nDevice = status.st_dev;
    level.m_nInode = status.st_ino;
    DeleteFiles(level.m_vecLeft);
    m_vecLevels.push_back(std::move(level));
    return true;
  }

  // Unlinks everything in m_current but directories, which it hands back.
  void DeleteFiles(std::vector<std::string>& directories) {
    CDescriptor fd = OpenDescriptor(m_current.Get(), ".", O_RDONLY | O_DIRECTORY);
    if (!fd.IsOpen()) return Note(errno);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(fd.Get()), closedir);
    if (stream == nullptr) return Note(errno);
    fd.Release();  // the stream's from here on
    std::vector<std::string> files;
    for (;;) {
      errno = 0;
      const dirent* const found = readdir(stream.get());
      if (found == nullptr) break;
      if (IsDotName(found->d_name)) continue;
      (IsDirectory(*found) ? directories : files).emplace_back(found->d_name);
    }
    if (errno != 0) Note(errno);
    for (const std::string& name : files) {
      if (unlinkat(m_current.Get(), name.c_str(), 0) != 0 && errno != ENOENT) Note(errno);
    }
  }

  bool IsDirectory(const dirent& entry) const {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat status = {};
    return fstatat(m_current.Get(), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
  }

  // Goes into a subdirectory. One from which there is no way back up (it
  // cannot be searched, or was moved away) is left alone.
  void Descend(const std::string& name) {
    const SLevel& parent = m_vecLevels.back();
    CDescriptor fd =
        OpenDescriptor(m_current.Get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    struct stat above = {};
    if (!fd.IsOpen() || fstatat(fd.Get(), "..", &above, 0) != 0 ||
        above.st_dev != parent.m_nDevice || above.st_ino != parent.m_nInode) {
      return Remove(name);
    }
    CDescriptor outer = std::exchange(m_current, std::move(fd));
    if (!Enter(name)) m_current = std::move(outer);
  }

  // Goes up and removes the directory that was left. False at the end, or
  // when ".." is no longer the directory that was come from.
  bool Ascend() {
    const std::string name = std::move(m_vecLevels.back().m_strName);
    m_vecLevels.pop_back();
    if (m_vecLevels.empty()) return false;
    CDescriptor up = OpenDescriptor(m_current.Get(), "..", O_RDONLY | O_DIRECTORY);
    struct stat status = {};
    if (!up.IsOpen() || fstat(up.Get(), &status) != 0) {
      Note(errno);
      return false;
    }
    const SLevel& parent = m_vecLevels.back();
    if (status.st_dev != parent.m_nDevice || status.st_ino != parent.m_nInode) {
      m_error = ESystemError::kOther;
      return false;
    }
    m_current = std::move(up);
    Remove(name);
    return true;
  }

  void Remove(const std::string& name) {
    if (unlinkat(m_current.Get(), name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) Note(errno);
  }

  // Used by the one thread that clears.
  CDescriptor m_current;                       // the directory of the last level
  std::vector<SLevel> m_vecLevels;             // from the cleared directory down
  ESystemError m_error = ESystemError::kNone;  // the first failure
};

}  // namespace

ESystemError CPosixSystem::ClearDirectory(const std::string& path) {
  CDescriptor fd;
  const ESystemError error = OpenBelowRoot(path, O_NOFOLLOW, fd);
  if (error != ESystemError::kNone) return error;
  return CDirectoryClearer(std::move(fd)).Run();
}
