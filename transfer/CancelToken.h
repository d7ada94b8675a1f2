#pragma once

#include <condition_variable>
#include <mutex>

/// Lets any thread end the operation that runs, and no later one.
///
/// Threads: Begin and End on the operation's thread; the others on any.
class CCancelToken {
 public:
  /// An operation that lasts as long as the object; part of the one that runs
  /// already, if any.
  class CScope {
   public:
    explicit CScope(CCancelToken& token);
    CScope(const CScope&) = delete;
    CScope& operator=(const CScope&) = delete;
    ~CScope();

   private:
    CCancelToken& m_token;
    bool m_bOutermost = false;
  };

  /// Nothing while no operation runs.
  void Cancel();

  /// True from then on until the operation's end.
  bool IsCancelled() const;

  /// Waits, but not beyond a Cancel.
  void Sleep(int milliseconds);

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_bRunning = false;    // guarded by m_mutex
  bool m_bCancelled = false;  // guarded by m_mutex
};
