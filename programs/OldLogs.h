#pragma once

#include <string>

/// Whose logs: the names differ, and each program removes its own only.
enum class ELogs { kClient, kServer };

/// What a program keeps unless it is told otherwise.
constexpr int kUsualLogDays = 30;
constexpr int kMostLogDays = 36500;

/// Removes logs that nobody has written to for more than `days` days (0: none
/// for their age), and of more than 10,000 the oldest. Leaves alone whatever
/// has another name than such a log, and what is no file.
void RemoveOldLogs(const std::string& directory, ELogs logs, int days);

/// Does so for the server's, now and once a day, on a thread that can do
/// nothing else where `confined`. Call before the process confines itself.
void KeepServerLogsFresh(const std::string& directory, int days, bool confined);
