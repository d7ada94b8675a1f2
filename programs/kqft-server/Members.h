#pragma once

#include <chrono>
#include <string>

#include "net/TransferFacts.h"
#include "programs/kqft/JsonObject.h"

/// Members that the access log and the status file have in common.

/// RFC 3339, in UTC.
std::string TimeText(std::chrono::system_clock::time_point time);

constexpr double kSecondsPerMillisecond = 0.001;

void AddAddress(CJsonObject& object, const STransferFacts& facts);

/// A name of at most 1,024 bytes; of a longer one also how long it is.
void AddName(CJsonObject& object, const char* key, const std::string& name);

/// The same path, "/" separating.
std::string WithSlashes(std::string path);

/// "project" and "name" of a file below the projects' directory, which comes
/// WithSlashes; any other file is "name" alone, as the client called it.
void AddPath(CJsonObject& object, const std::string& directory, const std::string& path);

void AddResult(CJsonObject& object, int result);
