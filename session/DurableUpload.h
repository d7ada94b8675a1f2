#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "platform/KQFile.h"

/// Brings one received file to the disk: while it arrives, at its end, and
/// what a failure leaves of it.
///
/// A client that goes on with a file takes its length for what the server
/// holds. Two accidents make a file longer than what it holds: a disk that
/// failed to keep what it took says so once and shows the file whole from then
/// on; and a machine that lost power may come back with a file as long as it
/// was and zeros at its end. After either the file is cut to the length that
/// is known to lie on the disk, which a note beside the content remembers. A
/// file that was cut has no room for what lies behind its new end, until it is
/// as long again as it was: a gap would hide in its length.
///
/// Threads: the delivery thread of the session.
class CDurableUpload {
 public:
  /// Directories that were flushed together, for several files.
  struct SFlushed {
    SFlushed();

    std::set<std::string> m_directories;
    const std::uint64_t m_ullMoment;  // of CDirectoryEntries
  };

  /// How many directories above a file get a new entry when it is made with
  /// all that are missing. Call before they are made.
  static int CountNewEntries(const std::string& path);

  /// Cuts a file whose reception its machine did not survive: an earlier run of
  /// this machine's system; or another machine, of which nobody can tell, and
  /// whose server would hold the file if it still received it. Call before its
  /// length is looked at, on a durable server.
  /// @param locked whether the caller holds the file. On a file system without
  ///               locks nothing is known of other machines, and what they left
  ///               stays.
  static void Recover(CFileHandle& file, const std::string& path, bool locked);

  /// Who receives a file, or has left it unfinished: "machine process 12"; ""
  /// when it does not say.
  static std::string WriterOf(CFileHandle& file);

  /// A file was opened to be received.
  /// @param root       the server's own directory
  /// @param newEntries as counted before; 0 when the file existed, and was not empty
  /// @param keptBytes  its length; -1 for a file that was emptied
  /// Blocks: as End, when the file before it never came to its end.
  void Begin(CFileHandle& file, const std::string& path, const std::string& root, int newEntries,
             std::int64_t keptBytes);

  /// Call before each chunk is stored.
  void BeforeWrite(CFileHandle& file);

  /// Counts a stored chunk and now and then starts to bring what was stored to
  /// the disk.
  /// @return false when some of it could not be brought there
  /// Blocks: until what the call before last started has been written.
  bool Wrote(CFileHandle& file, std::int64_t position, std::int64_t bytes);

  /// @return true when the file and the way to it lie on the disk. Without a
  ///         Begin before, as on a server that is not durable, at once.
  /// Blocks: for at most two steps of data, and for the directories' entries.
  /// @param flushed made when all files of a group were; what is brought to the
  ///                disk is added
  bool End(CFileHandle& file, SFlushed& flushed);

  /// What End begins with, for many files in two steps: first the data of all of
  /// them, then their notes.
  void StartData(CFileHandle& file);
  void StartNote(CFileHandle& file);

  /// True from Begin until End has succeeded.
  bool HasBegun() const { return !m_strPath.empty(); }

  /// This much of the file is known to lie on the disk.
  std::int64_t SafeBytes() const { return m_llSafeBytes; }

  /// Whether the file that was begun is shorter than before it was cut.
  bool IsShortened() const { return m_bShortened; }

  /// As End, for a file whose end never came; true when there is none.
  bool EndPending();

 private:
  bool Fail(CFileHandle& file);
  bool FlushDirectories(SFlushed& flushed) const;
  bool NeedsFlush(int level) const;
  bool IsOfServer(int level) const;
  static void SetNoteFor(CFileHandle& file, std::int64_t bytes, std::int64_t wholeBytes);

  std::string m_strPath;        // "" once its end has been confirmed
  std::string m_strRoot;        // the server's
  int m_nNewEntries = 0;        // in as many directories above it
  bool m_bFailed = false;       // since Begin
  bool m_bDataStarted = false;  // for the end
  bool m_bNoteStarted = false;
  bool m_bStartFailed = false;        // one of these
  bool m_bWantsNote = false;          // before the first chunk
  bool m_bNoted = false;              // the file bears a note
  bool m_bInOrder = true;             // each chunk began where the last one ended
  bool m_bShortened = false;          // at Begin
  std::int64_t m_llWholeBytes = 0;    // the length from which it was cut; 0: it was not
  std::int64_t m_llSafeBytes = 0;     // this much lies on the disk
  std::int64_t m_llStartedBytes = 0;  // this much was on its way at the last step
  std::int64_t m_llEnd = 0;           // where the last chunk ended
  std::int64_t m_llStepBytes = 0;     // stored since the last step
};
