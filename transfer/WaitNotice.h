#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

class ITransferObserver;

/// Explains a wait that takes long, and ends one that has become useless. As
/// long as the object lives, the thread that made it waits.
class CWaitNotice {
 public:
  /// @param text told to the observer after a moment
  CWaitNotice(ITransferObserver& observer, const std::string& text);

  /// @param limitMs called once so long nothing was heard; 0: never
  /// @param heard   a count that moves with everything that is heard
  /// @param giveUp  on a thread of its own; the wait is to end by it
  CWaitNotice(ITransferObserver& observer, const std::string& text, int limitMs,
              std::function<std::int64_t()> heard, std::function<void()> giveUp);
  CWaitNotice(const CWaitNotice&) = delete;
  CWaitNotice& operator=(const CWaitNotice&) = delete;
  ~CWaitNotice();

 private:
  void Run(ITransferObserver& observer, const std::string& text);
  bool IsOverWithin(int ms);

  const int m_nLimitMs;
  const std::function<std::int64_t()> m_heard;
  const std::function<void()> m_giveUp;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_bOver = false;  // guarded by m_mutex
  std::thread m_thread;
};
