#pragma once

/// Ctrl-C and polite requests to end. Outside of a CInterruptScope they end
/// the program at once; inside, the first one only asks, and a second one ends
/// the program.
///
/// Threads: Start once, in main; the queries from any thread.

/// Starts to listen for requests.
void StartInterrupts();

/// True once a request came while a scope was open.
bool IsInterrupted();

/// What the program should return: kExitInterrupted or kExitTerminated.
int InterruptedStatus();

/// Waits, but not beyond a request.
void InterruptibleSleep(int milliseconds);

/// Work that wants to be ended with care.
class CInterruptScope {
 public:
  CInterruptScope();
  CInterruptScope(const CInterruptScope&) = delete;
  CInterruptScope& operator=(const CInterruptScope&) = delete;
  ~CInterruptScope();
};
