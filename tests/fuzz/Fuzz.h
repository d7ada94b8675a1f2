#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "protocol/MessageCodes.h"
#include "support/TestSystem.h"

/// What the fuzz targets share: the input taken apart from its front, and a
/// way to report a finding.

inline void Require(bool holds) {
  if (!holds) std::abort();
}

class CFuzzInput {
 public:
  CFuzzInput(const std::uint8_t* data, std::size_t size)
      : m_strRest(reinterpret_cast<const char*>(data), size) {}

  bool AtEnd() const { return m_strRest.empty(); }
  unsigned TakeByte() {
    const std::string byte = Take(1);
    return byte.empty() ? 0U : static_cast<unsigned char>(byte[0]);
  }
  std::string Take(std::size_t bytes) {
    std::string front = m_strRest.substr(0, bytes);
    m_strRest.erase(0, bytes);
    return front;
  }
  /// A byte says how long it is.
  std::string TakeText() { return Take(TakeByte()); }
  std::string Rest() { return Take(m_strRest.size()); }

 private:
  std::string m_strRest;
};

/// The code of any message, of the one before the first, or of two behind the
/// last.
inline int AnyCode(unsigned choice) {
  return kFirstMessage - 1 + static_cast<int>(choice % (kMessageCount + 3));
}

/// The real system, but for one thing: whatever path it is given, only what
/// lies in one directory is reached. A path outside is not found; one that
/// must be changed there is a finding, unless ".." leads to it. Sleeps end at
/// once.
class CJail : public CForwardingSystem {
 public:
  CJail() : CForwardingSystem(NativeSystem()), m_pBefore(ReplaceSystem(this)) {}
  ~CJail() override { ReplaceSystem(m_pBefore); }
  const std::string& Root() const { return m_root.Path(); }

  ESystemError OpenFile(const std::string& path, EOpenMode mode,
                        std::unique_ptr<ISystemFile>& file) override {
    file = nullptr;
    Require(mode == EOpenMode::kRead || IsMeant(path));
    return IsInside(path) ? m_target.OpenFile(path, mode, file) : ESystemError::kAccess;
  }
  ESystemError RenameFile(const std::string& from, const std::string& to) override {
    Require(IsMeant(from));
    return CForwardingSystem::RenameFile(from, to);
  }
  ESystemError MakeDirectory(const std::string& path) override {
    if (Root().compare(0, path.size(), path) == 0) return ESystemError::kExists;
    return CForwardingSystem::MakeDirectory(path);
  }
  void Sleep(int) override {}
  ESystemError WriteStandard(bool, const std::string&) override { return ESystemError::kNone; }

 private:
  // Whatever is not known to change nothing must stay inside.
  ESystemError Before(EOperation operation, const std::string& path) override {
    switch (operation) {
      case EOperation::kQuery:
      case EOperation::kListDirectory:
      case EOperation::kFlushDirectory:
        return IsInside(path) ? ESystemError::kNone : ESystemError::kNotFound;
      case EOperation::kFreeSpace:
      case EOperation::kBootName:
      case EOperation::kMachineName:
      case EOperation::kLocalTime:
      case EOperation::kStartThread:
        return ESystemError::kNone;
      default:
        Require(IsMeant(path));
        return IsInside(path) ? ESystemError::kNone : ESystemError::kAccess;
    }
  }

  // As the caller wrote it, the path begins in the directory.
  bool IsMeant(const std::string& path) const {
    return path.compare(0, Root().size() - 1, Root(), 0, Root().size() - 1) == 0;
  }
  // It also stays there.
  bool IsInside(const std::string& path) const {
    std::string host = path;
    std::replace(host.begin(), host.end(), '\\', '/');
    return IsMeant(path) && IsMeant(std::filesystem::path(host).lexically_normal());
  }

  const CTempDirectory m_root;
  ISystem* const m_pBefore;
};
