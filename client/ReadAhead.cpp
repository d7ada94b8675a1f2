// Read ahead: a disk that has to look for each file gets several at once.

#include "client/ReadAhead.h"

#include "platform/KQFile.h"
#include "protocol/DataBlock.h"
#include "protocol/MeasurementFiles.h"

namespace {

constexpr std::size_t kFilesAhead = 16;

}  // namespace

std::shared_ptr<CFileHandle> CReadAhead::Take(std::size_t record) {
  if (record < m_nFirst || record > m_nFirst + m_opened.size()) {
    m_opened.clear();
    m_nFirst = record;
  }
  while (m_nFirst < record) {
    m_opened.pop_front();
    ++m_nFirst;
  }
  while (m_opened.size() <= kFilesAhead && m_nFirst + m_opened.size() < m_records.size()) {
    const std::string& path = m_records[m_nFirst + m_opened.size()].m_strPath;
    std::shared_ptr<CFileHandle> file;
    if (!IsMeasurementFile(path)) file = CFileHandle::Open(path, "rb");
    if (file != nullptr) file->ReadAhead(kReadBlockBytes);
    m_opened.push_back(std::move(file));
  }
  std::shared_ptr<CFileHandle> file = std::move(m_opened.front());
  return file != nullptr ? file : CFileHandle::Open(m_records[record].m_strPath, "rb");
}
