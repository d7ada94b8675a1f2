#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

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
    const std::string front = m_strRest.substr(0, bytes);
    m_strRest.erase(0, bytes);
    return front;
  }
  /// A byte says how long it is.
  std::string TakeText() { return Take(TakeByte()); }
  std::string Rest() { return Take(m_strRest.size()); }

 private:
  std::string m_strRest;
};

/// The real system, but for one thing: whatever path it is given, only what
/// lies in one directory is reached. A path outside is not found; one that
/// must be changed there is a finding, unless ".." leads to it. Sleeps end at
/// once.
class CJail : public ISystem {
 public:
  CJail() : m_pBefore(ReplaceSystem(this)) {}
  ~CJail() override { ReplaceSystem(m_pBefore); }
  const std::string& Root() const { return m_root.Path(); }

  std::unique_ptr<ISystemFile> OpenFile(const std::string& path, EOpenMode mode,
                                        ESystemError& error) override {
    Require(mode == EOpenMode::kRead || IsMeant(path));
    error = ESystemError::kAccess;
    return IsInside(path) ? m_real.OpenFile(path, mode, error) : nullptr;
  }
  bool QueryFile(const std::string& path, SFileStatus& status) override {
    return IsInside(path) && m_real.QueryFile(path, status);
  }
  ESystemError RemoveFile(const std::string& path) override {
    return Change(path, [&] { return m_real.RemoveFile(path); });
  }
  ESystemError RenameFile(const std::string& from, const std::string& to) override {
    Require(IsMeant(from));
    return Change(to, [&] { return m_real.RenameFile(from, to); });
  }
  ESystemError CopyPermissions(const std::string& from, const std::string& to) override {
    return Change(to, [&] { return m_real.CopyPermissions(from, to); });
  }
  ESystemError MakeDirectory(const std::string& path) override {
    if (Root().compare(0, path.size(), path) == 0) return ESystemError::kExists;
    return Change(path, [&] { return m_real.MakeDirectory(path); });
  }
  ESystemError RemoveEmptyDirectory(const std::string& path) override {
    return Change(path, [&] { return m_real.RemoveEmptyDirectory(path); });
  }
  bool FlushDirectory(const std::string& path) override { return IsInside(path); }
  ESystemError ListDirectory(const std::string& path,
                             std::vector<SDirectoryEntry>& entries) override {
    return IsInside(path) ? m_real.ListDirectory(path, entries) : ESystemError::kNotFound;
  }
  ESystemError ClearDirectory(const std::string& path) override {
    return Change(path, [&] { return m_real.ClearDirectory(path); });
  }
  bool QueryFreeSpace(const std::string& path, std::uint64_t& bytes) override {
    return m_real.QueryFreeSpace(path, bytes);
  }
  std::string BootName() override { return m_real.BootName(); }
  std::int64_t Now() override { return m_real.Now(); }
  std::int64_t WallClock() override { return m_real.WallClock(); }
  SCalendarTime LocalTime(std::int64_t seconds) override { return m_real.LocalTime(seconds); }
  void Sleep(int) override {}
  bool Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            int milliseconds, const std::function<bool()>& done) override {
    return m_real.Wait(condition, lock, milliseconds, done);
  }
  bool StartThread(std::function<void()> body) override {
    return m_real.StartThread(std::move(body));
  }
  void WriteStandard(bool, const std::string&) override {}

 private:
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
  template <typename Call>
  ESystemError Change(const std::string& path, const Call& call) const {
    Require(IsMeant(path));
    return IsInside(path) ? call() : ESystemError::kAccess;
  }

  const CTempDirectory m_root;
  ISystem& m_real = NativeSystem();
  ISystem* const m_pBefore;
};
