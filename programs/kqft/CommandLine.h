#pragma once

#include <string>

#include "programs/kqft/Options.h"

/// Reads the command line, the environment and the configuration file. A wrong use, help and
/// version are dealt with here: the text is printed.
/// @return true to go on; false to end with `status`.
bool ParseOptions(int argc, char** argv, SOptions& options, int& status);

/// Splits "HOST" or "HOST:PORT"; the port keeps its value when none is given.
/// @return false when it is neither.
bool ParseServer(const std::string& text, std::string& host, int& port);
