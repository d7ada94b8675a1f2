#pragma once

// What else tests send to processes; the numbers are those of POSIX.
constexpr int SIGKILL = 9;
constexpr int SIGCONT = 18;
constexpr int SIGSTOP = 19;
