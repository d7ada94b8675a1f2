// Client log: one text file per client, held open between lines.
//
// Network thread, caller and worker all write here; m_pLock guards the file,
// its path and the time of its last opening. The size of the file is asked
// for outside the lock, on a copy of the path.

#include "client/KQFileTransServiceClient.h"
#include "platform/LogFile.h"
#include "platform/ThreadLock.h"
#include "platform/TimeConvert.h"

void CKQFileTransServiceClient::CreateLogFile() {
  const CScopedLock lock(m_pLock);
  m_strLogPath = m_strLogDir + "ServiceClient" + m_strServerIP + "_" +
                 std::to_string(CTimeConvert::GetWallTime());
  OpenLogFile(*m_pLogFile, m_strLogPath);
}

// By value, as hosts know it. NOLINTNEXTLINE(performance-unnecessary-value-param)
void CKQFileTransServiceClient::WriteLog(std::string strLog) {
  if (IsLogFileFull(GuardedCopy(m_strLogPath))) CreateLogFile();
  const CScopedLock lock(m_pLock);
  ReopenLogFileIfDue(*m_pLogFile, m_strLogPath, m_llLogTime);
  AppendLogLine(*m_pLogFile, strLog);
}
