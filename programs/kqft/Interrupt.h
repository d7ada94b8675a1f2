#pragma once

#include <functional>

/// Ctrl-C, polite requests to end and the end of the terminal. Outside of a
/// CInterruptScope they end the program at once; inside, the first one only
/// asks, and a second one ends the program. A terminal that goes hurries
/// nobody: whoever ends a login sends that beside another request.
///
/// Threads: Start once, in main; the queries from any thread.

/// Starts to listen for requests.
void StartInterrupts();

/// True once a request came while a scope was open.
bool IsInterrupted();

/// What the program should return: kExitInterrupted, kExitTerminated or
/// kExitHungUp.
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

/// While it lives, whoever asks how far the program is gets an answer.
class CShowScope {
 public:
  /// @param onShow on a thread of its own, each time somebody asks
  explicit CShowScope(std::function<void()> onShow);
  CShowScope(const CShowScope&) = delete;
  CShowScope& operator=(const CShowScope&) = delete;
  ~CShowScope();
};
