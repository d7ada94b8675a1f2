#pragma once

#include <cstdint>
#include <string>

class CKQFile;

/// What the logs of client, server and session have in common. Each keeps its
/// own file, path, lock and switches and calls these steps in its own order.

/// A log file beyond this many bytes is followed by a new one.
constexpr std::uint64_t kLogFileLimitBytes = 1048576;

/// A log that stays open is closed and reopened after this many seconds.
constexpr std::int64_t kLogReopenSeconds = 60;

/// True when a new log file is due.
bool IsLogFileFull(const std::string& path);

/// Closes the file if it is open and opens `path` for appending.
void OpenLogFile(CKQFile& file, const std::string& path);

/// Reopens a log that has been open for more than kLogReopenSeconds and sets
/// `openedAt` to the time of that.
void ReopenLogFileIfDue(CKQFile& file, const std::string& path, std::int64_t& openedAt);

/// Time, ": " and the message.
std::string LogLine(const std::string& message);

/// Writes lines in one call; drops them when the file is closed.
void AppendLogLines(CKQFile& file, const std::string& lines);

inline void AppendLogLine(CKQFile& file, const std::string& message) {
  AppendLogLines(file, LogLine(message));
}
