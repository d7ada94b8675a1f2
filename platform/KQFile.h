#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "KQFileTransServiceExport.h"

class ISystemFile;
enum class ESystemError;
struct SReadPart;
struct SWritePart;

/// One open file with a position of its own.
///
/// Shared by everyone who works on it: the file is closed when the last one
/// lets go, so an operation that runs while another thread closes ends in its
/// own file, never in one opened later under the same descriptor.
///
/// Threads: every operation from any thread; positional ones do not wait for
/// each other.
class KQFT_API CFileHandle {
 public:
  /// @param mode "rb", "r+b", "r+bc", "w+b", "w+bx" or "a+".
  /// @param error why it is null; may be null itself
  /// @return null when the file cannot be opened, or is no regular file.
  static std::shared_ptr<CFileHandle> Open(const std::string& path, const std::string& mode,
                                           ESystemError* error = nullptr);

  explicit CFileHandle(std::unique_ptr<ISystemFile> file);
  CFileHandle(const CFileHandle&) = delete;
  CFileHandle& operator=(const CFileHandle&) = delete;
  ~CFileHandle();

  /// Reads at a position; does not move the handle's own.
  /// @return bytes read, fewer than `len` only at the end of the file, on an
  ///         error or after MarkClosed; 0 for len <= 0 or a negative position.
  int ReadAt(std::int64_t position, char* buf, int len);

  /// Writes all `len` bytes at a position; does not move the handle's own.
  /// @return false on an error, after MarkClosed, for a negative position or
  ///         length, and when position + len does not fit in 64 bits.
  bool WriteAt(std::int64_t position, const char* data, int len);

  /// Writes `count` parts one after the other, less than 2 GiB in all, in as
  /// few calls as the system can; the parts are used up.
  /// @return bytes written, fewer than the parts hold where WriteAt fails
  int WriteAt(std::int64_t position, SWritePart* parts, int count);

  /// As ISystemFile's.
  void ReadAhead(std::int64_t bytes);

  /// Waits until what was written lies on the disk.
  bool Flush();

  /// Begins to write it there; what the call before began is there on return.
  /// @return false when something could not be written
  bool StartFlush();

  /// Cuts the file off behind `bytes`. All three: false after MarkClosed.
  bool Resize(std::int64_t bytes);

  /// Holds the file for one writer until the handle is gone, see ISystemFile.
  ESystemError Lock();

  /// The text that stands beside the content, see ISystemFile.
  std::string Note();
  void SetNote(const std::string& text);

  /// As ReadAt and WriteAt at the handle's own position, which moves on.
  int Read(char* buf, int len);

  /// Fills `count` parts one after the other, less than 2 GiB in all; the
  /// parts are used up.
  int Read(SReadPart* parts, int count);
  bool Write(const char* data, int len);
  bool Seek(std::int64_t position);

  /// Refuses every operation that starts from now on. Never waits for one
  /// that runs.
  void MarkClosed();
  bool IsClosed() const;

 private:
  struct SState;

  int ReadAt(std::int64_t position, SReadPart* parts, int count);

  std::unique_ptr<SState> m_pState;
};

/// What the library needs of a file that it writes in order.
class KQFT_API IKQFile {
 public:
  virtual ~IKQFile() = default;
  virtual bool KQOpen(const std::string& path, std::string mode) = 0;
  virtual bool Write(const char* data, int len) = 0;
  virtual void Close() = 0;
};

/// A file that one object keeps open at a time.
///
/// Threads: every operation from any thread. Close and KQOpen never wait for
/// a read or write that runs; that one finishes in the file it began in.
class KQFT_API CKQFile : public IKQFile {
 public:
  CKQFile() = default;
  CKQFile(const CKQFile&) = delete;
  CKQFile& operator=(const CKQFile&) = delete;
  ~CKQFile() override;

  /// Closes what is open, then opens `path`.
  /// @param mode "rb" read, must exist; "r+b" read and write, must exist;
  ///             "r+bc" as that, made when missing; "w+b" create or empty; "w+bx" create, must not
  ///             exist; "a+" append, create when missing.
  /// @return false when it cannot be opened or names no regular file; the
  ///         object is then closed.
  bool KQOpen(const std::string& path, std::string mode) override;

  /// Reads from the current position.
  /// @return bytes read; fewer than `len` at the end of the file or on an
  ///         error; 0 when closed or for len <= 0.
  int Read(char* buf, int len);

  /// Moves to an absolute position. @return false when closed or pos < 0.
  bool Seek(std::int64_t pos);

  /// Writes all `len` bytes at the current position.
  bool Write(const char* data, int len) override;

  /// Writes all `len` bytes at `pos`; the current position stays. A position
  /// beyond the end extends the file.
  bool WriteEx(std::int64_t pos, const char* data, int len);

  /// Harmless when nothing is open.
  void Close() override;
  bool IsOpen() const;

  /// The path given to the last KQOpen or Attach.
  std::string GetFilePath() const;

  /// The open file itself, null when closed. Stays usable for its holder
  /// until somebody closes it.
  std::shared_ptr<CFileHandle> GetHandle() const;

  /// Closes what is open and takes over a file that is open already.
  void Attach(std::shared_ptr<CFileHandle> handle, const std::string& path);

  /// Hands over what is open and closes nothing; null when nothing is.
  std::shared_ptr<CFileHandle> Detach();

  /// Closes only if `handle` is still what is open.
  void CloseIf(const std::shared_ptr<CFileHandle>& handle);

 private:
  void Swap(std::shared_ptr<CFileHandle> handle, const std::string* path);

  mutable std::mutex m_mutex;
  std::shared_ptr<CFileHandle> m_pHandle;  // guarded by m_mutex
  std::string m_strPath;                   // guarded by m_mutex
};
