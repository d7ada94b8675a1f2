#pragma once

// What else tests send to processes; the numbers are those of POSIX.
constexpr int SIGHUP = 1;
constexpr int SIGKILL = 9;
constexpr int SIGUSR1 = 10;
constexpr int SIGCONT = 18;
constexpr int SIGSTOP = 19;

// Wine does now and then, of programs that were killed.
constexpr bool kMayKeepSockets = true;
