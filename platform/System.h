#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// The one contract for every file, directory, clock, wait, thread and
/// free-space call of the library. The build chooses the implementation
/// (`platform/posix`, `platform/windows`); tests put one of their own in its
/// place to play a full disk or a fast clock.
///
/// Paths: byte strings in which "\" and "/" both separate, on every operating
/// system. An implementation translates them at the system call and nowhere
/// else, and refuses a path that is empty or holds a NUL byte.
///
/// Threads: every operation may be called from any thread.

/// Why a call failed, as far as a caller tells cases apart.
enum class ESystemError {
  kNone,
  kNotFound,    ///< no such file or directory
  kExists,      ///< the name is taken
  kAccess,      ///< permission denied, or a read-only file system
  kNoSpace,     ///< disk or quota full
  kTooMany,     ///< no descriptor or thread left
  kNotRegular,  ///< a directory, pipe or device where a file was asked for
  kBadPath,     ///< empty, with a NUL byte, too long, or the root where that is refused
  kOther,
};

/// How a file is opened. Only regular files open; anything else is
/// kNotRegular and never blocks (opening a pipe would).
enum class EOpenMode {
  kRead,       ///< must exist
  kUpdate,     ///< must exist; read and write, content kept
  kCreate,     ///< created, or emptied when it exists; read and write
  kCreateNew,  ///< created; kExists when the name is taken; read and write
  kAppend,     ///< created when missing; every write goes to the end
};

/// A place in memory that a read fills, one of several in a row.
struct SReadPart {
  char* m_pData = nullptr;
  std::size_t m_nBytes = 0;
};

/// One open file. Closed by the destructor. Calls on one object may overlap.
class ISystemFile {
 public:
  virtual ~ISystemFile() = default;

  /// Reads what lies at `position` into `count` parts, one after the other.
  /// @return bytes read, at least 1 and possibly fewer than the parts hold; 0
  ///         at the end of the file; -1 on an error.
  virtual std::int64_t ReadAt(const SReadPart* parts, int count, std::int64_t position) = 0;

  /// Writes up to `size` bytes at `position` (at the end in mode kAppend).
  /// @return bytes written, possibly fewer than `size`; -1 on an error, which
  ///         `error` then names.
  virtual std::int64_t WriteAt(const char* data, std::size_t size, std::int64_t position,
                               ESystemError& error) = 0;

  /// Waits until what was written lies on the disk.
  virtual bool Flush() = 0;

  /// Begins to write to the disk what was written so far, and waits for what
  /// the call before began. Promises nothing: only Flush does.
  /// @return false when something could not be written; Flush may not tell of
  ///         that again
  virtual bool StartFlush() = 0;

  /// Cuts the file off behind `bytes`, or fills it up with zeros.
  virtual bool Resize(std::int64_t bytes) = 0;

  /// A short text that stands beside the content; "" when there is none. A
  /// file system that loses power keeps it in step with what was written out
  /// before it was set.
  virtual std::string Note() = 0;

  /// Puts it in the place of the one before; "" removes that.
  /// @return false when the file system keeps none
  virtual bool SetNote(const std::string& text) = 0;
};

/// What a path names, symbolic links followed.
struct SFileStatus {
  bool m_bRegular = false;
  bool m_bDirectory = false;
  std::int64_t m_llSize = 0;  ///< bytes; 0 for anything but a regular file
};

/// Attribute bits of a directory entry.
constexpr unsigned kAttributeReadOnly = 1;
constexpr unsigned kAttributeHidden = 2;
constexpr unsigned kAttributeDirectory = 16;
constexpr unsigned kAttributeNormal = 128;  ///< no other bit is set
constexpr unsigned kAttributeReparsePoint = 1024;

/// One entry of a directory.
struct SDirectoryEntry {
  std::string m_strName;
  unsigned m_nAttributes = 0;
  std::int64_t m_llSize = 0;        ///< bytes; 0 for anything but a regular file
  std::int64_t m_llCreateTime = 0;  ///< seconds since 1970
};

/// A moment as the local calendar and clock show it.
struct SCalendarTime {
  int m_nYear = 1970, m_nMonth = 1, m_nDay = 1, m_nHour = 0, m_nMinute = 0, m_nSecond = 0;
};

class ISystem {
 public:
  virtual ~ISystem() = default;

  // Files. `error` is set by every call, to kNone on success.
  virtual std::unique_ptr<ISystemFile> OpenFile(const std::string& path, EOpenMode mode,
                                                ESystemError& error) = 0;
  virtual bool QueryFile(const std::string& path, SFileStatus& status) = 0;
  virtual ESystemError RemoveFile(const std::string& path) = 0;

  /// Gives `to` what `from` names, in one step: another process sees either
  /// the old or the new file under `to`.
  virtual ESystemError RenameFile(const std::string& from, const std::string& to) = 0;

  /// Gives `to` the permissions (and, where allowed, the owner) of `from`.
  virtual ESystemError CopyPermissions(const std::string& from, const std::string& to) = 0;

  // Directories.
  virtual ESystemError MakeDirectory(const std::string& path) = 0;
  virtual ESystemError RemoveEmptyDirectory(const std::string& path) = 0;

  /// Waits until the names in a directory lie on the disk. True as well on a
  /// file system that knows no such wait.
  virtual bool FlushDirectory(const std::string& path) = 0;

  /// Lists every entry: first "." and ".." as plain directories, then the
  /// others sorted by name, letter case ignored, so that a listing does not
  /// depend on the file system. Symbolic links are described, never followed.
  /// Refuses a path that resolves to the root directory.
  virtual ESystemError ListDirectory(const std::string& path,
                                     std::vector<SDirectoryEntry>& entries) = 0;

  /// Deletes everything inside `path` and keeps `path`. Never follows a
  /// symbolic link, never leaves the directory, goes on past what it cannot
  /// delete. Refuses a path that resolves to the root directory.
  virtual ESystemError ClearDirectory(const std::string& path) = 0;

  /// Bytes free in all, not only for the caller, where a file of the directory
  /// `path` would lie: on POSIX the file system of its deepest part that
  /// exists, whatever its letters; on Windows the drive that its first three
  /// characters name.
  virtual bool QueryFreeSpace(const std::string& path, std::uint64_t& bytes) = 0;

  /// Names the run of the operating system. Under another name, what earlier
  /// ones had not flushed may be lost. "" when it cannot tell.
  virtual std::string BootName() = 0;

  // Time.
  /// Seconds since 1970: the wall clock when the process started, moved on by
  /// a clock that is never set. Differences are therefore true.
  virtual std::int64_t Now() = 0;

  /// Seconds since 1970 as the wall clock shows them now. Whoever sets it moves
  /// them either way, so that they are shown and never subtracted.
  virtual std::int64_t WallClock() = 0;
  virtual SCalendarTime LocalTime(std::int64_t seconds) = 0;
  virtual void Sleep(int milliseconds) = 0;

  /// Waits on `condition` until `done()` or until the time has passed.
  /// @return done()
  virtual bool Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                    int milliseconds, const std::function<bool()>& done) = 0;

  /// Runs `body` on a new detached thread with all signals blocked.
  /// @return false when no thread can be had; `body` is then not run.
  virtual bool StartThread(std::function<void()> body) = 0;

  /// Writes a line to the standard output (or error) stream in one call,
  /// past the stream buffers; an unwritable stream is ignored.
  virtual void WriteStandard(bool errorStream, const std::string& text) = 0;
};

/// The implementation in force. Never null; lives until the process ends.
ISystem& System();

/// Puts `system` in the place of the operating system (null: back to it) and
/// returns what was in force. For tests; call while nothing of the library
/// runs.
ISystem* ReplaceSystem(ISystem* system);

/// The operating system itself, whatever is in force.
ISystem& NativeSystem();
