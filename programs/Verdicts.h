#pragma once

#include <string>

#include "transfer/Verdict.h"

class COutput;

/// What a comparison found, as both programs say it.

/// One file: its JSON object, and for people a line of what is not the same.
void SayVerdict(COutput& output, const std::string& project, const SFileVerdict& file);

/// A whole project.
/// @param counted whether there was anything to compare with
/// @param same    all of it was compared and is the same
/// @param why     what else there is to say; "" for nothing
void SayVerdicts(COutput& output, const std::string& project, const VerdictCounts& counts,
                 bool counted, bool same, const std::string& why);
