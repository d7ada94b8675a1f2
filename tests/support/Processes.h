#pragma once

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "HostSignals.h"

/// Processes as tests start, stop and end them.

constexpr std::intptr_t kNoProcess = -1;

/// Its output and error streams go to files. @return kNoProcess when it fails
std::intptr_t StartProcess(const std::string& path, const std::vector<std::string>& arguments,
                           const std::string& out, const std::string& err);

/// SIGINT, SIGTERM, SIGKILL, SIGSTOP or SIGCONT, or what stands for them.
void SignalProcess(std::intptr_t process, int number);

/// @param status once it has ended: the exit status; 128 + number of the
///               signal that ended it
bool HasProcessEnded(std::intptr_t process, int& status);

/// For this process, and those that it starts from now on.
void SetEnvironmentWord(const char* name, const std::string& value);
