#pragma once

#include <windows.h>

#include <chrono>
#include <string>

#include "platform/System.h"

/// The operating system as Windows offers it, and what its sources share. For
/// the sources of this folder only.

/// Owns a handle; INVALID_HANDLE_VALUE and null own none.
class CHandle {
 public:
  explicit CHandle(HANDLE handle = INVALID_HANDLE_VALUE) : m_handle(handle) {}
  CHandle(CHandle&& other) noexcept : m_handle(other.Release()) {}
  CHandle& operator=(CHandle&& other) noexcept;
  CHandle(const CHandle&) = delete;
  CHandle& operator=(const CHandle&) = delete;
  ~CHandle();

  HANDLE Get() const { return m_handle; }
  bool IsOpen() const { return m_handle != INVALID_HANDLE_VALUE && m_handle != nullptr; }
  HANDLE Release();

 private:
  HANDLE m_handle;
};

/// The error that a code of GetLastError stands for.
ESystemError ToSystemError(DWORD code);

/// What GetLastError says, or kNone.
ESystemError LastError(bool failed);

/// Takes away the mark that keeps a file from being written or deleted.
void MakeWritable(const std::wstring& path);

/// A moment of the file system as seconds since 1970.
std::int64_t ToUnixSeconds(const FILETIME& time);

class CWindowsSystem final : public ISystem {
 public:
  CWindowsSystem();

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
  // Constant after construction: one moment on both clocks.
  const std::chrono::system_clock::time_point m_startWall;
  const std::chrono::steady_clock::time_point m_startSteady;
};
