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

std::string LogLine(const std::string& message) {
  return CTimeConvert::ConvertCurTimeToString() + ": " + message;
}

void AppendLogLines(CKQFile& file, const std::string& lines) {
  if (file.IsOpen()) file.Write(lines.data(), static_cast<int>(lines.size()));
}
