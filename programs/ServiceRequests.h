#pragma once

/// What is asked of a service while it runs.
enum class EServiceRequest {
  kNone,    ///< nothing within the time
  kReopen,  ///< its logs were moved: SIGHUP
  kEnd,     ///< as HoldTermination
};

/// HoldTermination, and from here on the first of these does not end the
/// process either.
void HoldServiceRequests();

/// Waits for the next one, so many milliseconds at most.
/// Threads: one thread of the program calls it.
EServiceRequest WaitForServiceRequest(int milliseconds);
