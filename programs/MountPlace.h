#pragma once

#include <string>

/// Whether a directory lies on a file system in user space, as the clients of
/// distributed ones do, and is not the root of the mount. When such a client
/// loads its volume anew, a process that was confined to the directory loses its
/// right to it; only the root of a mount keeps it.
bool IsBelowUserMount(const std::string& directory);
