#pragma once

#include <string>

#include "platform/posix/PosixSystem.h"

/// What listing and clearing a directory share. For the sources of this
/// folder only.

/// True for "." and "..".
bool IsDotName(const char* name);

/// True for the root directory, under whatever name it was reached.
bool IsRootDirectory(int directory);

/// Opens a directory other than the root. With O_NOFOLLOW among `flags` the
/// last component must not be a symbolic link.
/// @return kBadPath for an unusable path and for the root.
ESystemError OpenDirectory(const std::string& path, int flags, CDescriptor& fd);
