// The steps that all log writers take.

#include "platform/LogFile.h"

#include "platform/HardWareCommon.h"
#include "platform/KQFile.h"
#include "platform/TimeConvert.h"

bool IsLogFileFull(const std::string& path) {
  return CHardWareCommon::GetFileSize(path) > kLogFileLimitBytes;
}

void OpenLogFile(CKQFile& file, const std::string& path) {
  if (file.IsOpen()) file.Close();
  file.KQOpen(path, "a+");
}

void ReopenLogFileIfDue(CKQFile& file, const std::string& path, std::int64_t& openedAt) {
  const std::int64_t open = CTimeConvert::GetCurTime() - openedAt;
  if (open <= kLogReopenSeconds && open >= -kLogReopenSeconds) return;
  OpenLogFile(file, path);
  openedAt = CTimeConvert::GetCurTime();
}

void AppendLogLine(CKQFile& file, const std::string& message) {
  if (!file.IsOpen()) return;
  const std::string line = CTimeConvert::ConvertCurTimeToString() + ": " + message;
  file.Write(line.data(), static_cast<int>(line.size()));
}
