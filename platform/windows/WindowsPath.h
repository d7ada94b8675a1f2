#pragma once

#include <string>

#include "KQFileTransServiceExport.h"

/// Paths and texts between the library, whose bytes are UTF-8, and Windows.
/// For the sources of the windows folders only.

/// @return false for bytes that are no UTF-8
KQFT_API bool ToWide(const std::string& text, std::wstring& wide);

/// Halves of characters, which names of files may hold, become U+FFFD.
KQFT_API std::string ToUtf8(const std::wstring& wide);

/// The path as system calls take it: whole, "\\?\" in front, so that nobody
/// reads more into it than stands there, dots resolved here. It may begin with
/// a drive and a separator, with "\\host\share", with a separator (on the
/// current drive), or anywhere below the current directory.
///
/// @return false when it is empty, holds a NUL byte or bytes that are no
///         UTF-8, asks for the current directory of a drive ("C:name"), is one
///         of "\\?\" or "\\.\", or has a part that can be no name of a file
///         (see platform/LocalNames.h)
bool ToNativePath(const std::string& path, std::wstring& native);

/// The reverse, without what stands in front.
std::string FromNativePath(const std::wstring& native);

/// True for a drive or a share as a whole.
bool IsRootPath(const std::wstring& native);
