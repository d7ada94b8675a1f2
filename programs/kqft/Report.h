#pragma once

#include "programs/kqft/Options.h"
#include "transfer/ProjectClient.h"

class COutput;

/// What an exit status says in a summary: "done", "failed" or "interrupted".
const char* WordFor(int status);

/// Reports the sum of one round of a put that watches a directory.
void ReportRound(COutput& output, const std::string& command, const STransferResult& round);

/// Reports every file that fell short, and the sum; with --dry-run what would
/// be moved.
/// @return the exit status that the program deserves.
int ReportTransfer(COutput& output, const SOptions& options, const STransferResult& result);
