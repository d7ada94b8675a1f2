#pragma once

#include <string>

#include "KQFileTransServiceExport.h"

/// A word of the environment; "" when it is not set.
KQFT_API std::string EnvironmentWord(const char* name);

/// Where a user's programs keep what is neither data nor settings; "" when
/// the environment names no home.
KQFT_API std::string UserStateDirectory();
