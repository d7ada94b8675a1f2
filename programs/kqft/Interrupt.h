#pragma once

#include <functional>

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

/// Work that wants to be ended with care.
class CInterruptScope {
 public:
  /// @param onRequest called once, on a thread of its own, when a request
  ///                  comes in the scope
  explicit CInterruptScope(std::function<void()> onRequest);
  CInterruptScope(const CInterruptScope&) = delete;
  CInterruptScope& operator=(const CInterruptScope&) = delete;
  ~CInterruptScope();
};
