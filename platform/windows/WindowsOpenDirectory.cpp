// Work in a directory of Windows. It is held open such that neither it nor any
// above it can be moved or replaced, so that calls may go by its path.

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/ExpertUtils.h"
#include "platform/FileLook.h"
#include "platform/FileTimes.h"
#include "platform/PathBytes.h"
#include "platform/windows/WindowsPlace.h"

namespace {

ESystemError OpenItself(const std::string& path, DWORD share, CHandle& handle) {
  CPlace place;
  const ESystemError error = place.Find(path);
  if (error != ESystemError::kNone) return error;
  return place.Open(FILE_READ_ATTRIBUTES | FILE_LIST_DIRECTORY, OPEN_EXISTING, false, handle,
                    share);
}

bool IsLinkAt(const std::string& path) {
  CHandle handle;
  return OpenItself(path, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, handle) ==
             ESystemError::kNone &&
         IsLink(handle.Get());
}

ESystemError ToError(const std::error_code& error) {
  return error ? ToSystemError(static_cast<DWORD>(error.value())) : ESystemError::kNone;
}

class CWindowsDirectory final : public ISystemDirectory {
 public:
  CWindowsDirectory(ISystem& system, CHandle held, const std::string& path)
      : m_system(system), m_held(std::move(held)), m_strPath(path + "\\") {}

  ESystemError OpenFile(const std::string& name, EOpenMode mode,
                        std::unique_ptr<ISystemFile>& file) override {
    file = nullptr;
    if (IsLinkAt(m_strPath + name)) {
      return mode == EOpenMode::kCreateNew ? ESystemError::kExists : ESystemError::kNotRegular;
    }
    return m_system.OpenFile(m_strPath + name, mode, file);
  }

  ESystemError QueryFile(const std::string& name, SFileLook& look) override {
    std::error_code error;
    look = LookAtFile(m_strPath + name, error, false);
    return ToError(error);
  }

  ESystemError RemoveFile(const std::string& name) override {
    return m_system.RemoveFile(m_strPath + name);
  }

  ESystemError RenameFile(const std::string& from, const std::string& to, bool replace) override {
    SFileLook look;
    if (!replace && QueryFile(to, look) == ESystemError::kNone) return ESystemError::kExists;
    return m_system.RenameFile(m_strPath + from, m_strPath + to);
  }

  ESystemError SetTime(const std::string& name, std::int64_t time) override {
    std::error_code error;
    ::SetFileTime(PathOf(m_strPath + name), time, error);
    return ToError(error);
  }

  ESystemError SetMode(const std::string& name, unsigned mode) override {
    std::error_code error;
    ::SetFileMode(PathOf(m_strPath + name), mode, error);
    return ToError(error);
  }

 private:
  // Constant after construction.
  ISystem& m_system;
  const CHandle m_held;
  const std::string m_strPath;  // with a separator at its end
};

}  // namespace

ESystemError CWindowsSystem::OpenDirectory(const std::string& top, const std::string& below,
                                           bool make,
                                           std::unique_ptr<ISystemDirectory>& directory) {
  directory = nullptr;
  std::vector<std::string> paths = {top};
  for (std::size_t begin = 0; begin < below.size();) {
    const std::size_t end = std::min(below.find('/', begin), below.size());
    paths.push_back(paths.back() + "\\" + below.substr(begin, end - begin));
    begin = end + 1;
  }
  const auto hasLink = [&paths] { return std::any_of(paths.begin() + 1, paths.end(), IsLinkAt); };
  if (hasLink()) return ESystemError::kNotRegular;
  if (make) EU::CExpertUtils::CreateAllDir(paths.back() + "\\");
  CHandle held;
  SFileStatus status;
  ESystemError error = OpenItself(paths.back(), FILE_SHARE_READ | FILE_SHARE_WRITE, held);
  if (error == ESystemError::kNone) error = QueryFile(paths.back(), status);
  if (error != ESystemError::kNone) return error;
  if (hasLink() || !status.m_bDirectory) return ESystemError::kNotRegular;
  directory = std::make_unique<CWindowsDirectory>(*this, std::move(held), paths.back());
  return ESystemError::kNone;
}
