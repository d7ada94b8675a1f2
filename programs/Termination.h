#pragma once

/// Requests to end the process: Ctrl-C, or the word of whoever started it.

constexpr int kInterruptSignal = 2;   ///< Ctrl-C
constexpr int kTerminateSignal = 15;  ///< a polite request from outside

/// From here on such a request no longer ends the process by itself. Call it
/// first in main: every thread started later inherits it. Writing to a pipe
/// that nobody reads then fails instead of ending the process, too.
void HoldTermination();

/// Waits for the next request.
/// @return one of the two numbers above.
/// Threads: one thread of the program calls it.
int WaitForTermination();

/// Asks this process to end, as a polite request from outside does. After
/// HoldTermination.
void RequestTermination();
