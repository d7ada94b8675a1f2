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
constexpr char kNoteSeparator = ' ';

// A note: the run of the operating system that it was written in, and how many
// bytes lay on the disk by then.
struct SNote {
  std::string m_strBoot;
  std::int64_t m_llSafeBytes = 0;
};

bool ReadNote(CFileHandle& file, SNote& note) {
  const std::string text = file.Note();
  const std::size_t separator = text.find(kNoteSeparator);
  if (separator == std::string::npos) return false;
  note.m_strBoot = text.substr(0, separator);
  note.m_llSafeBytes =
      std::max<std::int64_t>(CKQPlatForm::KQToLONGLONG(text.substr(separator + 1)), 0);
  return true;
}

// "" when the system cannot tell.
std::string BootName() {
  std::string name;
  System().QueryBootName(name);
  return name;
}

std::int64_t SizeOf(const std::string& path) {
  return static_cast<std::int64_t>(CHardWareCommon::GetFileSize(path));
}

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

void CDurableUpload::Recover(const std::string& path) {
  const std::shared_ptr<CFileHandle> file = CFileHandle::Open(path, "r+b");
  SNote note;
  if (file == nullptr || !ReadNote(*file, note) || note.m_strBoot == BootName()) return;
  if (SizeOf(path) > note.m_llSafeBytes && !file->Resize(note.m_llSafeBytes)) return;
  file->SetNote("");
}

void CDurableUpload::Begin(CFileHandle& file, const std::string& path, int newEntries,
                           std::int64_t keptBytes) {
  const std::int64_t begin = std::max<std::int64_t>(keptBytes, 0);
  if (path != m_strPath) {
    EndPending();  // given up by the client, without an end
    m_nNewEntries = 0;
    m_llSafeBytes = begin;
    m_strPath = path;
  }
  // The end of a file that is gone on with may not lie on the disk yet.
  SNote note;
  m_bNoted = ReadNote(file, note);
  m_llSafeBytes = std::min(m_llSafeBytes, begin);
  if (m_bNoted) m_llSafeBytes = std::min(m_llSafeBytes, note.m_llSafeBytes);
  m_bWantsNote = keptBytes >= 0;
  m_llStartedBytes = m_llSafeBytes;
  m_llEnd = begin;
  m_llStepBytes = 0;
  m_bInOrder = true;
  m_bFailed = false;
  m_nNewEntries = std::max(m_nNewEntries, newEntries);
}

// Not at the beginning: most files that are opened again are whole.
void CDurableUpload::BeforeWrite(CFileHandle& file) {
  if (!m_bWantsNote) return;
  m_bWantsNote = false;
  m_bNoted = true;
  WriteNote(file);
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
  if (m_bNoted) WriteNote(file);
  return true;
}

// A file system that keeps no notes leaves the second accident to chance.
void CDurableUpload::WriteNote(CFileHandle& file) const {
  const std::string boot = BootName();
  if (!boot.empty()) file.SetNote(boot + kNoteSeparator + std::to_string(m_llSafeBytes));
}

bool CDurableUpload::End(CFileHandle& file) {
  if (m_strPath.empty()) return true;
  if (!file.Flush()) return Fail(file);
  for (int level = 0; level < m_nNewEntries; ++level) {
    const ESystemError error = System().FlushDirectory(DirectoryAbove(m_strPath, level));
    if (error != ESystemError::kNone) return Fail(file);
  }
  if (m_bNoted) file.SetNote("");
  m_strPath.clear();
  return true;
}

bool CDurableUpload::EndPending() {
  if (CKQPlatForm::IsFileMissing(m_strPath)) m_strPath.clear();
  if (m_strPath.empty()) return true;
  if (m_bFailed) return false;
  const std::shared_ptr<CFileHandle> file = CFileHandle::Open(m_strPath, "r+b");
  return file != nullptr && End(*file);
}

bool CDurableUpload::Fail(CFileHandle& file) {
  m_bFailed = true;
  if (SizeOf(m_strPath) > m_llSafeBytes) file.Resize(m_llSafeBytes);
  m_llStartedBytes = m_llSafeBytes;
  m_bInOrder = false;
  return false;
}
