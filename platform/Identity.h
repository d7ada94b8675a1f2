#pragma once

#include <string>

#include "KQFileTransServiceExport.h"

/// Who runs this program, for other people to read: "user@host".
KQFT_API std::string UserAtHost();

/// The number of this process.
KQFT_API int ProcessId();
