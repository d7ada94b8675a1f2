#pragma once

#include <string>
#include <vector>

#include "programs/kqft-status/Watcher.h"

/// What there is to say of servers besides the page, and the words for it.

/// "up", "late", "gone", "ended", "no file", "not readable".
const char* StateWord(EServerState state);

/// What its file calls it; the name of the file where it says nothing.
std::string ServerName(const SServerView& view);

/// Whether its figures mean something now.
bool IsServing(const SServerView& view);

/// What failed or was refused. What was cut off is neither; nor is a download of a
/// file that is not there, by which clients ask whether it is.
bool IsFailure(const SEndFact& end);
std::int64_t FailuresToday(const SServerFacts& facts);

/// One JSON object; docs/json.md has its members.
std::string ServersJson(const std::vector<SServerView>& views);

/// The text format of Prometheus.
std::string ServersMetrics(const std::vector<SServerView>& views);
