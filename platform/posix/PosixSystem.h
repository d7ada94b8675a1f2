#pragma once

#include <chrono>

#include "platform/System.h"

/// The operating system as POSIX offers it, and what its sources share. For
/// the sources of this folder only.

/// Owns a descriptor; -1 owns none.
class CDescriptor {
 public:
  explicit CDescriptor(int fd = -1) : m_nFd(fd) {}
  CDescriptor(CDescriptor&& other) noexcept : m_nFd(other.Release()) {}
  CDescriptor& operator=(CDescriptor&& other) noexcept;
  CDescriptor(const CDescriptor&) = delete;
  CDescriptor& operator=(const CDescriptor&) = delete;
  ~CDescriptor();

  int Get() const { return m_nFd; }
  bool IsOpen() const { return m_nFd >= 0; }
  int Release();

 private:
  int m_nFd;
};

/// open() that is repeated when a signal interrupts it and that never returns
/// 0 to 2: a process that closed its standard streams would print into the
/// file. `directory` is what a relative path starts from. Sets errno.
CDescriptor OpenDescriptor(int directory, const char* path, int flags);

/// The path as system calls take it, "\" turned into "/".
/// @return false when the path is empty or holds a NUL byte.
bool ToNativePath(const std::string& path, std::string& native);

/// The error that an errno value stands for.
ESystemError ToSystemError(int number);

/// What errno says, or kNone.
ESystemError LastError(bool failed);

/// Opens a file as ISystem::OpenFile does.
/// @param directory what a relative path starts from
/// @param flags     more of them for the call, O_NOFOLLOW or none
ESystemError OpenFileAt(int directory, const char* path, EOpenMode mode, int flags,
                        std::unique_ptr<ISystemFile>& file);

class CPosixSystem final : public ISystem {
 public:
  CPosixSystem();

  ESystemError OpenFile(const std::string& path, EOpenMode mode,
                        std::unique_ptr<ISystemFile>& file) override;
  ESystemError QueryFile(const std::string& path, SFileStatus& status) override;
  ESystemError QueryWriters(const std::string& path, bool& any) override;
  ESystemError RemoveFile(const std::string& path) override;
  ESystemError RenameFile(const std::string& from, const std::string& to) override;
  ESystemError FollowLinks(const std::string& path, std::string& target) override;
  ESystemError CopyPermissions(const std::string& from, const std::string& to) override;
  ESystemError MakeDirectory(const std::string& path) override;
  ESystemError RemoveEmptyDirectory(const std::string& path) override;
  ESystemError FlushDirectory(const std::string& path) override;
  ESystemError ListDirectory(const std::string& path,
                             std::vector<SDirectoryEntry>& entries) override;
  ESystemError OpenDirectory(const std::string& top, const std::string& below, bool make,
                             std::unique_ptr<ISystemDirectory>& directory) override;
  ESystemError ClearDirectory(const std::string& path) override;
  ESystemError QueryFreeSpace(const std::string& path, std::uint64_t& bytes) override;
  ESystemError QueryBootName(std::string& name) override;
  ESystemError QueryMachineName(std::string& name) override;
  std::int64_t SteadyMilliseconds() override;
  std::int64_t WallSeconds() override;
  ESystemError LocalTime(std::int64_t seconds, SCalendarTime& time) override;
  void Sleep(int milliseconds) override;
  bool Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            int milliseconds, const std::function<bool()>& done) override;
  ESystemError StartThread(std::function<void()> body) override;
  ESystemError WriteStandard(bool errorStream, const std::string& text) override;

 private:
  // Constant after construction, "" when it is not known; read before the
  // process may confine itself.
  const std::string m_strBootName;
  const std::string m_strMachineName;

  // Constant after construction: one moment on both clocks.
  const std::chrono::system_clock::time_point m_startWall;
  const std::chrono::steady_clock::time_point m_startSteady;
};
