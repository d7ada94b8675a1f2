#pragma once

#include <string>

namespace CLI {
class App;
}

/// Fills in from a configuration file what neither the command line nor the
/// environment said. One `key = value` a line, the keys named as the options
/// without their dashes; "#" and ";" begin comments.
///
/// Throws CLI::ParseError for a file that cannot be read, an unknown key or an
/// impossible value.
void ApplyConfigFile(CLI::App& app, const std::string& path);
