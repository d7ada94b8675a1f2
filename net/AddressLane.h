#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>

/// Lets the callbacks of all links of one remote address run one at a time,
/// in the order in which their turns were taken. A new link's turn is taken
/// when it is accepted, so set-ups happen in that order.
///
/// Threads: every operation from any thread.
class CAddressLane {
 public:
  std::uint64_t TakeTurn();

  /// Waits for the turn. @return false once Abort was called: the turn is
  /// then gone and must not be left.
  bool Enter(std::uint64_t turn);
  bool Enter() { return Enter(TakeTurn()); }
  void Leave();

  /// Gives up a turn that was taken and not entered.
  void Abandon(std::uint64_t turn);

  /// Ends every wait, for good.
  void Abort();

 private:
  void ServeNext();

  std::mutex m_mutex;
  std::condition_variable m_condition;
  std::uint64_t m_ullNext = 0;             // guarded by m_mutex; the turn that TakeTurn gives
  std::uint64_t m_ullServing = 0;          // guarded by m_mutex; the turn that may run
  std::set<std::uint64_t> m_setAbandoned;  // guarded by m_mutex
  int m_nWaiting = 0;                      // guarded by m_mutex
  bool m_bAborted = false;                 // guarded by m_mutex
};
