// Confirm groups: many small files, one wait for the disk.
//
// The system begins to write all of them before the first one is waited for:
// a file system that keeps a journal brings what it has to say about them there
// at once, and their directory is waited for a single time.

#include "session/ConfirmGroup.h"

#include <algorithm>
#include <utility>

#include "platform/KQFile.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"

namespace {

constexpr std::size_t kMostFiles = 64;  // each holds a descriptor
constexpr std::size_t kMostAnswers = 4 * kMostFiles;

// So that the end of a file does not wait for a large one behind it.
constexpr std::int64_t kMostBytes = 4 << 20;

}  // namespace

void CConfirmGroup::Add(SFile file, int code, std::string body) {
  m_answers.push_back({code, std::move(body), std::move(file)});
  if (++m_nFiles == 1) m_llBytes = 0;
}

bool CConfirmGroup::IsFull() const {
  return m_nFiles >= kMostFiles || m_answers.size() >= kMostAnswers || m_llBytes > kMostBytes;
}

bool CConfirmGroup::Holds(const std::string& path) const {
  return std::any_of(m_answers.begin(), m_answers.end(), [&](const SAnswer& answer) {
    return answer.m_file && answer.m_file->m_strPath == path;
  });
}

void CConfirmGroup::Hold(int code, std::string body) {
  m_answers.push_back({code, std::move(body), std::nullopt});
}

CDurableUpload CConfirmGroup::Flush(const Send& send, const Over& over) {
  std::size_t left = std::exchange(m_nFiles, 0);
  std::vector<SAnswer> answers = std::exchange(m_answers, {});
  CDurableUpload::SFlushed flushed;
  const auto forEachFile = [&answers](void (CDurableUpload::*step)(CFileHandle&)) {
    for (SAnswer& answer : answers) {
      if (answer.m_file) (answer.m_file->m_durable.*step)(*answer.m_file->m_pFile);
    }
  };
  if (left > 1) {
    forEachFile(&CDurableUpload::StartData);
    forEachFile(&CDurableUpload::StartNote);
  }
  CDurableUpload last;
  for (SAnswer& answer : answers) {
    if (answer.m_file) {
      SFile& file = *answer.m_file;
      const bool safe = file.m_durable.End(*file.m_pFile, flushed);
      over(file, safe);
      if (!safe && file.m_nLastError != ERROR_CODE_SERVER_WRITE) {
        send(NET_STC_WRITEDATA_ERROR, EncodeBody(SResult{ERROR_CODE_SERVER_WRITE}));
      }
      if (--left == 0 && !safe) last = std::move(file.m_durable);
      file.m_pFile->MarkClosed();
    }
    send(answer.m_nCode, answer.m_strBody);
  }
  return last;
}

std::vector<CConfirmGroup::SFile> CConfirmGroup::Clear() {
  std::vector<SFile> files;
  for (SAnswer& answer : m_answers) {
    if (answer.m_file) files.push_back(std::move(*answer.m_file));
  }
  m_answers.clear();
  m_nFiles = 0;
  return files;
}
