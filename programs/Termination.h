#pragma once

/// Requests to end the process: Ctrl-C, or the word of whoever started it.

constexpr int kInterruptSignal = 2;   ///< Ctrl-C
constexpr int kTerminateSignal = 15;  ///< a polite request from outside
constexpr int kHangUpSignal = 1;      ///< the terminal is gone
constexpr int kShowSignal = 10;       ///< somebody wants to know how far it is

/// From here on such a request no longer ends the process by itself. Call it
/// first in main: every thread started later inherits it. Writing to a pipe
/// that nobody reads then fails instead of ending the process, too.
void HoldTermination();

/// Holds the two others as well, where the system has them; right behind
/// HoldTermination. A hang-up that whoever started the process wants ignored
/// (nohup) stays so.
void HoldMoreRequests();

/// Waits for the next request that is held.
/// @return one of the numbers above.
/// Threads: one thread of the program calls it.
int WaitForTermination();

/// Asks this process to end, as a polite request from outside does. After
/// HoldTermination.
void RequestTermination();
