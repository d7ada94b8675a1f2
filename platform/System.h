#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "KQFileTransServiceExport.h"
#include "platform/SystemTypes.h"

struct SFileLook;

/// The one contract for every file, directory, clock, wait, thread and
/// free-space call of the library. The build chooses the implementation
/// (`platform/posix`, `platform/windows`); tests put one of their own in its
/// place to play a full disk or a fast clock.
///
/// Paths: byte strings in which "\" and "/" both separate, on every operating
/// system. An implementation translates them at the system call and nowhere
/// else, and refuses a path that is empty or holds a NUL byte.
///
/// Failures: every operation that can fail returns an ESystemError, kNone on
/// success, and leaves its result in its last argument, which is empty, zero
/// or null after a failure.
///
/// Threads: every operation may be called from any thread.
///
/// A new operation is declared here, gets a name in the list of operations and is
/// handed on by the forwarding class, below or in platform/ForwardingFile.h; each
/// system then implements it. Those who only replace the system need no line,
/// and every fault plan knows it.

/// The operations that can fail, those of open files last.
///
/// X(name, text)
#define KQFT_SYSTEM_OPERATIONS(X)               \
  X(kOpen, "open")                              \
  X(kQuery, "query")                            \
  X(kQueryWriters, "query writers")             \
  X(kRemove, "remove")                          \
  X(kRename, "rename")                          \
  X(kSetTime, "set time")                       \
  X(kSetMode, "set mode")                       \
  X(kFollowLinks, "follow links")               \
  X(kCopyPermissions, "copy permissions")       \
  X(kMakeDirectory, "make directory")           \
  X(kRemoveDirectory, "remove directory")       \
  X(kFlushDirectory, "flush directory")         \
  X(kListDirectory, "list directory")           \
  X(kOpenDirectory, "open directory")           \
  X(kClearDirectory, "clear directory")         \
  X(kFreeSpace, "query free space")             \
  X(kBootName, "query boot name")               \
  X(kMachineName, "query machine name")         \
  X(kLocalTime, "convert to local time")        \
  X(kStartThread, "start thread")               \
  X(kWriteStandard, "write to standard stream") \
  X(kRead, "read")                              \
  X(kWrite, "write")                            \
  X(kFlush, "flush")                            \
  X(kStartFlush, "start flush")                 \
  X(kResize, "resize")                          \
  X(kLock, "lock")                              \
  X(kIsNamed, "look whose name it is")          \
  X(kReadNote, "read note")                     \
  X(kWriteNote, "write note")

enum class EOperation {
#define KQFT_OPERATION_ENUMERATOR(name, text) name,
  KQFT_SYSTEM_OPERATIONS(KQFT_OPERATION_ENUMERATOR)
#undef KQFT_OPERATION_ENUMERATOR
};

/// One open file. Closed by the destructor. Calls on one object may overlap.
class ISystemFile {
 public:
  virtual ~ISystemFile() = default;

  /// Reads what lies at `position` into `count` parts, one after the other.
  /// @param bytes read, at least 1 and possibly fewer than the parts hold; 0
  ///              at the end of the file
  virtual ESystemError ReadAt(const SReadPart* parts, int count, std::int64_t position,
                              std::int64_t& bytes) = 0;

  /// Writes up to `size` bytes at `position` (at the end in mode kAppend).
  /// @param bytes written, possibly fewer than `size`
  virtual ESystemError WriteAt(const char* data, std::size_t size, std::int64_t position,
                               std::int64_t& bytes) = 0;

  /// As WriteAt, of `count` parts one after the other. A system without such a
  /// call writes the first one.
  virtual ESystemError WriteParts(const SWritePart* parts, [[maybe_unused]] int count,
                                  std::int64_t position, std::int64_t& bytes) {
    return WriteAt(parts->m_pData, parts->m_nBytes, position, bytes);
  }

  /// Waits until what was written lies on the disk.
  virtual ESystemError Flush() = 0;

  /// Begins to write to the disk what was written so far, and waits for what
  /// the call before began; Linux has a call for that. Promises nothing: only
  /// Flush does. Of something that could not be written Flush may not tell
  /// again.
  virtual ESystemError StartFlush() = 0;

  /// Has the first bytes read from the disk already, where the system can. Does
  /// not wait for them, and promises nothing.
  virtual void ReadAhead(std::int64_t bytes) = 0;

  /// Cuts the file off behind `bytes`, or fills it up with zeros.
  virtual ESystemError Resize(std::int64_t bytes) = 0;

  /// Holds the whole file until it is closed, as it is by the end of the
  /// process. Only those who ask find out: it stays readable and writable.
  /// @return kBusy while another opening of it holds it, of any process and, on
  ///         a distributed file system, of any machine; kUnsupported where the
  ///         file system keeps no locks
  /// Once for each opening.
  virtual ESystemError Lock() = 0;

  /// Whether `path` still leads to this file: it may have been removed or
  /// replaced since it was opened. A path that leads nowhere is no failure.
  virtual ESystemError IsNamed(const std::string& path, bool& is) = 0;

  /// A short text that stands beside the content; "" when there is none. A
  /// file system that loses power keeps it in step with what was written out
  /// before it was set. One that keeps no texts says kNone here and fails
  /// below; on Linux it is an extended attribute.
  virtual ESystemError Note(std::string& text) = 0;

  /// Puts it in the place of the one before; "" removes that.
  virtual ESystemError SetNote(const std::string& text) = 0;
};

/// An open directory. What its operations reach lies in it, also where its path
/// leads elsewhere by now: names are plain ones of entries, and no symbolic
/// link is followed; one counts as no regular file.
class ISystemDirectory {
 public:
  virtual ~ISystemDirectory() = default;

  virtual ESystemError OpenFile(const std::string& name, EOpenMode mode,
                                std::unique_ptr<ISystemFile>& file) = 0;
  virtual ESystemError QueryFile(const std::string& name, SFileLook& look) = 0;
  virtual ESystemError RemoveFile(const std::string& name) = 0;

  /// As ISystem::RenameFile within the directory.
  /// @param replace false: kExists where `to` names anything
  virtual ESystemError RenameFile(const std::string& from, const std::string& to, bool replace) = 0;

  /// @param time of the last change, nanoseconds since 1970
  virtual ESystemError SetTime(const std::string& name, std::int64_t time) = 0;

  /// As SetFileMode.
  virtual ESystemError SetMode(const std::string& name, unsigned mode) = 0;
};

class ISystem {
 public:
  virtual ~ISystem() = default;

  // Files.
  virtual ESystemError OpenFile(const std::string& path, EOpenMode mode,
                                std::unique_ptr<ISystemFile>& file) = 0;

  /// @return kNotFound only when there surely is nothing of that name; any
  ///         other failure leaves it open.
  virtual ESystemError QueryFile(const std::string& path, SFileStatus& status) = 0;

  /// Whether somebody has the file open for writing, or mapped so.
  /// @return a failure also where the system cannot tell: Linux tells it of
  ///         the caller's own files, on most file systems
  virtual ESystemError QueryWriters(const std::string& path, bool& any) = 0;
  virtual ESystemError RemoveFile(const std::string& path) = 0;

  /// Gives `to` what `from` names, in one step: another process sees either
  /// the old or the new file under `to`.
  virtual ESystemError RenameFile(const std::string& from, const std::string& to) = 0;

  /// @param target the file that a symbolic link leads to, over as many links
  ///               as there are; `path` when it is no link, or leads nowhere
  virtual ESystemError FollowLinks(const std::string& path, std::string& target) = 0;

  /// Gives `to` the permissions (and, where allowed, the owner) of `from`.
  virtual ESystemError CopyPermissions(const std::string& from, const std::string& to) = 0;

  // Directories.
  virtual ESystemError MakeDirectory(const std::string& path) = 0;
  virtual ESystemError RemoveEmptyDirectory(const std::string& path) = 0;

  /// Waits until the names in a directory lie on the disk. A success as well
  /// on a file system that knows no such wait.
  virtual ESystemError FlushDirectory(const std::string& path) = 0;

  /// Lists every entry: first "." and ".." as plain directories, then the
  /// others sorted by name, letter case ignored, so that a listing does not
  /// depend on the file system. Symbolic links are described, never followed.
  /// Refuses a path that resolves to the root directory.
  virtual ESystemError ListDirectory(const std::string& path,
                                     std::vector<SDirectoryEntry>& entries) = 0;

  /// Opens the directory `below`, with "/" between its parts, or "", that lies
  /// below `top`. None of its parts may be a symbolic link (kNotRegular); those of
  /// `top` are followed.
  /// @param make what is missing of both
  virtual ESystemError OpenDirectory(const std::string& top, const std::string& below, bool make,
                                     std::unique_ptr<ISystemDirectory>& directory) = 0;

  /// Deletes everything inside `path` and keeps `path`. Never follows a
  /// symbolic link, never leaves the directory, goes on past what it cannot
  /// delete. Refuses a path that resolves to the root directory.
  virtual ESystemError ClearDirectory(const std::string& path) = 0;

  /// Bytes free in all, not only for the caller, where a file of the directory
  /// `path` would lie: on POSIX the file system of its deepest part that
  /// exists, whatever its letters; on Windows the drive that its first three
  /// characters name.
  virtual ESystemError QueryFreeSpace(const std::string& path, std::uint64_t& bytes) = 0;

  /// Names the run of the operating system. Under another name, what earlier
  /// ones had not flushed may be lost.
  virtual ESystemError QueryBootName(std::string& name) = 0;

  /// Names the machine, the same in every run of its system.
  virtual ESystemError QueryMachineName(std::string& name) = 0;

  // Time.
  /// Milliseconds since 1970: the wall clock when the process started, moved on
  /// by a clock that is never set. Differences are therefore true; whatever
  /// paces or measures takes them here.
  virtual std::int64_t SteadyMilliseconds() = 0;

  /// Seconds since 1970 as the wall clock shows them now. Whoever sets it moves
  /// them either way, so that they are shown and never subtracted.
  virtual std::int64_t WallSeconds() = 0;

  /// The beginning of 1970 when the system cannot tell.
  virtual ESystemError LocalTime(std::int64_t seconds, SCalendarTime& time) = 0;
  virtual void Sleep(int milliseconds) = 0;

  /// Waits on `condition` until `done()` or until the time has passed.
  /// @return done()
  virtual bool Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                    int milliseconds, const std::function<bool()>& done) = 0;

  /// Runs `body` on a new detached thread with all signals blocked; after a
  /// failure it is not run.
  virtual ESystemError StartThread(std::function<void()> body) = 0;

  /// Writes a line to the standard output (or error) stream in one call,
  /// past the stream buffers.
  virtual ESystemError WriteStandard(bool errorStream, const std::string& text) = 0;
};

/// The implementation in force. Never null; lives until the process ends.
KQFT_API ISystem& System();

/// Puts `system` in the place of the operating system (null: back to it) and
/// returns what was in force. For tests; call while nothing of the library
/// runs.
ISystem* ReplaceSystem(ISystem* system);

/// The operating system itself, whatever is in force.
ISystem& NativeSystem();

/// Hands every call on to another system. Those who replace the system derive
/// from it and write down only what they change.
class CForwardingSystem : public ISystem {
  using enum EOperation;

 public:
  /// @param target not owned
  explicit CForwardingSystem(ISystem& target) : m_target(target) {}

  ESystemError OpenFile(const std::string& path, EOpenMode mode,
                        std::unique_ptr<ISystemFile>& file) override {
    file = nullptr;
    const ESystemError error =
        Call(kOpen, path, [&] { return m_target.OpenFile(path, mode, file); });
    if (file != nullptr) file = Wrap(path, std::move(file));
    return error;
  }
  ESystemError QueryFile(const std::string& path, SFileStatus& status) override {
    status = SFileStatus();
    return Call(kQuery, path, [&] { return m_target.QueryFile(path, status); });
  }
  ESystemError QueryWriters(const std::string& path, bool& any) override {
    any = false;
    return Call(kQueryWriters, path, [&] { return m_target.QueryWriters(path, any); });
  }
  ESystemError RemoveFile(const std::string& path) override {
    return Call(kRemove, path, [&] { return m_target.RemoveFile(path); });
  }
  ESystemError RenameFile(const std::string& from, const std::string& to) override {
    return Call(kRename, to, [&] { return m_target.RenameFile(from, to); });
  }
  ESystemError FollowLinks(const std::string& path, std::string& target) override {
    target.clear();
    return Call(kFollowLinks, path, [&] { return m_target.FollowLinks(path, target); });
  }
  ESystemError CopyPermissions(const std::string& from, const std::string& to) override {
    return Call(kCopyPermissions, to, [&] { return m_target.CopyPermissions(from, to); });
  }
  ESystemError MakeDirectory(const std::string& path) override {
    return Call(kMakeDirectory, path, [&] { return m_target.MakeDirectory(path); });
  }
  ESystemError RemoveEmptyDirectory(const std::string& path) override {
    return Call(kRemoveDirectory, path, [&] { return m_target.RemoveEmptyDirectory(path); });
  }
  ESystemError FlushDirectory(const std::string& path) override {
    return Call(kFlushDirectory, path, [&] { return m_target.FlushDirectory(path); });
  }
  ESystemError ListDirectory(const std::string& path,
                             std::vector<SDirectoryEntry>& entries) override {
    entries.clear();
    return Call(kListDirectory, path, [&] { return m_target.ListDirectory(path, entries); });
  }
  ESystemError OpenDirectory(const std::string& top, const std::string& below, bool make,
                             std::unique_ptr<ISystemDirectory>& directory) override;
  ESystemError ClearDirectory(const std::string& path) override {
    return Call(kClearDirectory, path, [&] { return m_target.ClearDirectory(path); });
  }
  ESystemError QueryFreeSpace(const std::string& path, std::uint64_t& bytes) override {
    bytes = 0;
    return Call(kFreeSpace, path, [&] { return m_target.QueryFreeSpace(path, bytes); });
  }
  ESystemError QueryBootName(std::string& name) override {
    name.clear();
    return Call(kBootName, "", [&] { return m_target.QueryBootName(name); });
  }
  ESystemError QueryMachineName(std::string& name) override {
    name.clear();
    return Call(kMachineName, "", [&] { return m_target.QueryMachineName(name); });
  }
  std::int64_t SteadyMilliseconds() override { return m_target.SteadyMilliseconds(); }
  std::int64_t WallSeconds() override { return m_target.WallSeconds(); }
  ESystemError LocalTime(std::int64_t seconds, SCalendarTime& time) override {
    time = SCalendarTime();
    return Call(kLocalTime, "", [&] { return m_target.LocalTime(seconds, time); });
  }
  void Sleep(int milliseconds) override { m_target.Sleep(milliseconds); }
  bool Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            int milliseconds, const std::function<bool()>& done) override {
    return m_target.Wait(condition, lock, milliseconds, done);
  }
  ESystemError StartThread(std::function<void()> body) override {
    return Call(kStartThread, "", [&] { return m_target.StartThread(std::move(body)); });
  }
  ESystemError WriteStandard(bool errorStream, const std::string& text) override {
    return Call(kWriteStandard, "", [&] { return m_target.WriteStandard(errorStream, text); });
  }

 protected:
  friend class CForwardingFile;
  friend class CForwardingDirectory;

  /// Comes before every operation that can fail, also before those of the
  /// files that were opened here. Whatever it returns but kNone is the result,
  /// and nothing is handed on.
  /// @param path "" where there is none, the second one where there are two
  virtual ESystemError Before([[maybe_unused]] EOperation operation,
                              [[maybe_unused]] const std::string& path) {
    return ESystemError::kNone;
  }

  /// What OpenFile gives out for a file that was opened, also in a directory.
  virtual std::unique_ptr<ISystemFile> Wrap(const std::string& path,
                                            std::unique_ptr<ISystemFile> file);

  template <typename Forward>
  ESystemError Call(EOperation operation, const std::string& path, const Forward& forward) {
    const ESystemError error = Before(operation, path);
    return error != ESystemError::kNone ? error : forward();
  }

  ISystem& m_target;
};
