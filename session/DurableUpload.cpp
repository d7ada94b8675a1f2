// Durable uploads: every 64 MiB the system begins to write what has arrived,
// and the session waits for what it began 64 MiB before. So the flush at the
// end finds at most 128 MiB to wait for, which a disk of 5 MB/s writes in the
// 30 s that a client waits, and the wait for the bulk is spent while data
// arrives, where nobody's patience is limited.

#include "session/DurableUpload.h"

#include <algorithm>

#include "platform/ExpertUtils.h"
#include "platform/HardWareCommon.h"
#include "platform/KQPlatForm.h"
#include "platform/System.h"

namespace {

constexpr std::int64_t kStepBytes = 64 << 20;
constexpr int kOwnDirectory = 2;  // as PickDirectory counts
constexpr int kMostLevels = 1000;

std::string DirectoryAbove(const std::string& path, int level) {
  const std::string directory = EU::CExpertUtils::PickDirectory(path, kOwnDirectory + level);
  return directory.empty() ? "." : directory;
}

}  // namespace

int CDurableUpload::CountNewEntries(const std::string& path) {
  int count = 1;
  while (count < kMostLevels && !CKQPlatForm::IsFileExist(DirectoryAbove(path, count - 1))) {
    ++count;
  }
  return count;
}

void CDurableUpload::Begin(const std::string& path, int newEntries, std::int64_t keptBytes) {
  if (path != m_strPath) {
    EndPending();  // given up by the client, without an end
    m_nNewEntries = 0;
    m_llSafeBytes = keptBytes;
    m_strPath = path;
  }
  // Of a file that is continued, the end may not lie on the disk yet.
  m_llSafeBytes = std::min(m_llSafeBytes, keptBytes);
  m_llStartedBytes = m_llSafeBytes;
  m_llEnd = keptBytes;
  m_llStepBytes = 0;
  m_bInOrder = true;
  m_bFailed = false;
  m_nNewEntries = std::max(m_nNewEntries, newEntries);
}

bool CDurableUpload::Wrote(CFileHandle& file, std::int64_t position, std::int64_t bytes) {
  if (m_strPath.empty()) return true;
  m_bInOrder = m_bInOrder && position == m_llEnd;
  m_llEnd = position + bytes;
  m_llStepBytes += bytes;
  if (m_llStepBytes < kStepBytes) return true;
  m_llStepBytes = 0;
  if (!file.StartFlush()) return Fail(file);
  if (!m_bInOrder) return true;
  m_llSafeBytes = std::max(m_llSafeBytes, m_llStartedBytes);
  m_llStartedBytes = m_llEnd;
  return true;
}

bool CDurableUpload::End(CFileHandle& file) {
  if (m_strPath.empty()) return true;
  if (!file.Flush()) return Fail(file);
  for (int level = 0; level < m_nNewEntries; ++level) {
    if (!System().FlushDirectory(DirectoryAbove(m_strPath, level))) return Fail(file);
  }
  m_strPath.clear();
  return true;
}

bool CDurableUpload::EndPending() {
  if (m_strPath.empty()) return true;
  if (m_bFailed) return false;
  const std::shared_ptr<CFileHandle> file = CFileHandle::Open(m_strPath, "r+b");
  return file != nullptr && End(*file);
}

bool CDurableUpload::Fail(CFileHandle& file) {
  m_bFailed = true;
  const auto size = static_cast<std::int64_t>(CHardWareCommon::GetFileSize(m_strPath));
  if (size > m_llSafeBytes) file.Resize(m_llSafeBytes);
  m_llStartedBytes = m_llSafeBytes;
  m_bInOrder = false;
  return false;
}
