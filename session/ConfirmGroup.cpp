// Confirm groups: many small files, one wait for the disk.
//
// The system begins to write all of them before the first one is waited for:
// a file system that keeps a journal brings what it has to say about them there
// at once, and their directory is waited for a single time.

#include "session/ConfirmGroup.h"

#include <algorithm>
#include <set>
#include <utility>

#include "platform/KQFile.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"

namespace {

constexpr std::size_t kMostFiles = 64;  // each holds a descriptor

// So that the end of a file does not wait for a large one behind it.
constexpr std::int64_t kMostBytes = 4 << 20;

}  // namespace

void CConfirmGroup::Add(SFile file) {
  if (m_files.empty()) m_llBytes = 0;
  m_files.push_back(std::move(file));
}

bool CConfirmGroup::IsFull() const {
  return m_files.size() >= kMostFiles || m_llBytes > kMostBytes;
}

bool CConfirmGroup::Holds(const std::string& path) const {
  return std::any_of(m_files.begin(), m_files.end(),
                     [&](const SFile& file) { return file.m_strPath == path; });
}

void CConfirmGroup::Hold(int code, std::string body, bool isEnd) {
  m_answers.push_back({code, std::move(body), isEnd});
}

CDurableUpload CConfirmGroup::Flush(const Send& send, const Over& over) {
  std::vector<SFile> files = std::exchange(m_files, {});
  const std::vector<SAnswer> answers = std::exchange(m_answers, {});
  if (files.size() > 1) {
    for (SFile& file : files) file.m_durable.StartEnd(*file.m_pFile);
  }
  std::set<std::string> directories;
  auto next = files.begin();
  CDurableUpload last;
  for (const SAnswer& answer : answers) {
    if (answer.m_bEnd && next != files.end()) {
      SFile& file = *next++;
      const bool safe = file.m_durable.End(*file.m_pFile, &directories);
      over(file, safe);
      if (!safe && file.m_nLastError != ERROR_CODE_SERVER_WRITE) {
        send(NET_STC_WRITEDATA_ERROR, EncodeBody(SResult{ERROR_CODE_SERVER_WRITE}));
      }
      if (!safe && next == files.end()) last = std::move(file.m_durable);
      file.m_pFile->MarkClosed();
    }
    send(answer.m_nCode, answer.m_strBody);
  }
  return last;
}

std::vector<CConfirmGroup::SFile> CConfirmGroup::Clear() {
  m_answers.clear();
  return std::exchange(m_files, {});
}
