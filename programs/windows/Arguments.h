#pragma once

#include <string>
#include <vector>

/// The command line in UTF-8, the program's name first. For the sources of
/// this folder only.
std::vector<std::string> CommandLineArguments();

/// Calls a program's main with these arguments.
int RunBody(std::vector<std::string> arguments, int (*body)(int argc, char** argv));
