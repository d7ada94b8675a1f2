// Server log: link events and failed sends, one text file at a time.
//
// The file is open only while an entry is written, so that others can read
// and move it; a file beyond 1 MiB is followed by a new one.

#include <utility>

#include "platform/KQFile.h"
#include "platform/LogFile.h"
#include "platform/ThreadLock.h"
#include "platform/TimeConvert.h"
#include "server/KQFileTransServiceServer.h"

void CKQFileTransServiceServer::SetLog(std::string dir, bool enable) {
  m_bLog = enable;
  {
    const CScopedLock lock(m_pLogLock);
    m_strLogDir = std::move(dir);
  }
  if (enable) CreateLogFile();
}

void CKQFileTransServiceServer::CreateLogFile() {
  const std::string name = "KQFileTransServer_" + CTimeConvert::ConvertCurTimeToString();
  const CScopedLock lock(m_pLogLock);
  m_strLogFile = m_strLogDir + name;
  OpenLogFile(*m_pLogFile, m_strLogFile);
}

// The size is looked at without the lock; at worst two threads start the same
// new file.
void CKQFileTransServiceServer::WriteLog(const std::string& message) {
  if (!m_bLog) return;
  if (IsLogFileFull(LogFilePath())) CreateLogFile();
  const CScopedLock lock(m_pLogLock);
  OpenLogFile(*m_pLogFile, m_strLogFile);
  AppendLogLine(*m_pLogFile, message);
  m_pLogFile->Close();
}

std::string CKQFileTransServiceServer::LogFilePath() const {
  const CScopedLock lock(m_pLogLock);
  return m_strLogFile;
}

std::string CKQFileTransServiceServer::LogDirectory() const {
  const CScopedLock lock(m_pLogLock);
  return m_strLogDir;
}
