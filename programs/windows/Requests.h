#pragma once

#include <windows.h>

/// Requests to the process that others of the same user make by setting an
/// event with a name: `Local\kqft-WHAT-PID`.

/// @return the event, which is reset when it has been waited for
HANDLE MakeRequest(const wchar_t* what);

/// The two for which Termination waits. After HoldTermination.
HANDLE InterruptRequest();
HANDLE TerminateRequest();
