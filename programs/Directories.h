#pragma once

#include <string>
#include <vector>

/// A directory as the library wants it: absolute, ending with a separator.
std::string DirectoryForLibrary(const std::string& path);

/// Tells why the library could not keep files in a directory.
/// @return "" when it can: the directory exists, a file can be made in it, and
///         its name holds nothing that the library reads differently.
std::string WhyUnusable(const std::string& directory);

/// The user's settings file of that name, there or not; "" when the
/// environment names no home.
std::string UserConfigFile(const std::string& name);

/// Where the system keeps the logs of this service.
std::string SystemLogDirectory();

/// The first of the candidates that can be used, made when it is missing; ""
/// when none can. Empty candidates are passed over.
std::string FirstUsableDirectory(const std::vector<std::string>& candidates);
