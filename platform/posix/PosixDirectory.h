#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/FileLook.h"
#include "platform/posix/PosixSystem.h"

/// What the work with directories shares. For the sources of this
/// folder only.

/// True for "." and "..".
bool IsDotName(const char* name);

/// True for the root directory, under whatever name it was reached.
bool IsRootDirectory(int directory);

/// Opens a directory other than the root. With O_NOFOLLOW among `flags` the
/// last component must not be a symbolic link.
/// @return kBadPath for an unusable path and for the root.
ESystemError OpenBelowRoot(const std::string& path, int flags, CDescriptor& fd);

/// What a status says of a file.
SFileLook ToLook(const struct stat& status);
