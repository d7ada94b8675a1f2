#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Names as the server and this machine exchange them. Nothing here asks
/// either of them.

/// Why the server must not be given this name of a project; "" when it may.
/// The server takes names as they are: an empty one or ".." would reach
/// everything it keeps, and more.
std::string WhyNoProject(const std::string& project);

/// The components of a name below a project, "\" and "/" separating.
/// @param why set, and the result empty, when a file of that name must not be
///            written: it could land outside of its directory
std::vector<std::string> SplitSafely(const std::string& name, std::string& why);

/// The components joined by "\", as the protocol wants it.
std::string JoinForServer(const std::vector<std::string>& components);

/// Name of the file that holds an unfinished download. It carries the whole
/// size, so that what is left of another version of the file is not gone on
/// with; it stays short enough for file systems that take 255 bytes.
std::string PartName(const std::string& fileName, std::int64_t wholeSize);

/// False for a name that the question for sizes, a list, cannot carry.
bool IsAskable(const std::string& name);
