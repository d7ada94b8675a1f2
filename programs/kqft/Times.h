#pragma once

#include <cstdint>
#include <string>

/// Moments as people and programs read them, in the zone of this machine.

/// "2026-11-22 10:29:40 +0100".
std::string FormatTime(std::int64_t seconds);

/// "2026-11-22T10:29:40+01:00", as RFC 3339 has it.
std::string FormatTimeForPrograms(std::int64_t seconds);

/// Reads a time as servers write it, YYYY-MM-DD_HH-MM-SS. That is their local
/// time and names no zone: it is taken for one of this machine's.
/// @return false when it is none
bool ParseServerTime(const std::string& text, std::int64_t& seconds);
