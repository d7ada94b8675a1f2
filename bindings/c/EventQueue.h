#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "net/TransferFacts.h"

/// One thing that happened to a server, kept until somebody asks.
struct SServerEvent {
  std::int32_t m_nKind = 0;
  std::int32_t m_nCode = 1;
  std::string m_strAddress;
  std::int32_t m_nPort = 0;
  std::string m_strPath;
  std::int64_t m_llBytes = 0;
  std::int64_t m_llMilliseconds = 0;
  std::int64_t m_llLost = 0;  ///< not kept, before this one
};

/// What happened, the oldest first. Never blocks who tells; what there is no
/// room for is lost and counted. Any thread.
class CEventQueue {
 public:
  /// @param room how many are kept
  explicit CEventQueue(std::size_t room) : m_nRoom(room) {}

  void Add(std::int32_t kind, const STransferFacts& facts);

  /// Nothing more comes: nobody waits any longer.
  void Close();

  /// @param milliseconds how long to wait for one; negative: for ever
  /// @return false when there is none
  bool Next(int milliseconds, SServerEvent& event);

 private:
  const std::size_t m_nRoom;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<SServerEvent> m_events;  // guarded by m_mutex
  std::int64_t m_llLost = 0;          // guarded by m_mutex; since the last that was kept
  bool m_bClosed = false;             // guarded by m_mutex
};
