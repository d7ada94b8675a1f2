#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "session/DurableUpload.h"
#include "session/UploadReport.h"

/// Received files whose end has not been confirmed yet, because the next
/// packets of the link are here already: they go to the disk together, which
/// costs hardly more than one of them. Until then everything that the session
/// answers waits as well, in its order.
///
/// Threads: the delivery thread of the session, or whoever stopped it.
class CConfirmGroup {
 public:
  /// A file that was received whole.
  struct SFile {
    CDurableUpload m_durable;
    std::shared_ptr<CFileHandle> m_pFile;
    std::string m_strPath;
    int m_nLastError = 0;  ///< what the client was told last of its data
    SUploadReport m_report;
  };
  /// Adds a file and the answer that confirms its end.
  void Add(SFile file, int code, std::string body);

  bool IsEmpty() const { return m_answers.empty(); }

  /// True when it should wait no longer for more.
  bool IsFull() const;

  /// Tells of bytes that came behind the first one that waits.
  void Count(int bytes) { m_llBytes += bytes; }

  /// Whether the file is one of those that wait.
  bool Holds(const std::string& path) const;

  /// An answer that goes out behind those that wait.
  void Hold(int code, std::string body);

  using Send = std::function<void(int code, const std::string& body)>;
  /// Told of each file whether it lies on the disk.
  using Over = std::function<void(const SFile& file, bool safe)>;

  /// Brings all files to the disk and sends what waits, before the end of a
  /// file that failed its 2508. @return what is to be known of the file that was
  /// added last; nothing unless that failed
  /// Blocks: for the flushes.
  CDurableUpload Flush(const Send& send, const Over& over);

  /// Forgets all of it; nothing is confirmed. @return the files
  std::vector<SFile> Clear();

 private:
  struct SAnswer {
    int m_nCode = 0;
    std::string m_strBody;
    std::optional<SFile> m_file;  // whose end it confirms
  };

  std::vector<SAnswer> m_answers;  // the first one confirms a file
  std::size_t m_nFiles = 0;        // so many do
  std::int64_t m_llBytes = 0;
};
