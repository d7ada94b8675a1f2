#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

class CIOCPBuffer;
class IReleaseBuffer;
class IStreamSocket;

/// What one link has still to send: one queue for buffers and texts, so that
/// everything leaves in the order of the calls.
///
/// A packet that finds the queue empty is sent at once by its caller, without
/// waking anybody; what the socket does not take is left to the link's sender
/// thread. Buffers go back to the sink on that thread only.
///
/// Threads: pushing and waiting from any thread; Run is the sender thread.
class CSendQueue {
 public:
  /// @param onBroken called, without a lock, when the socket refuses to send
  CSendQueue(IStreamSocket& socket, IReleaseBuffer& sink, std::function<void()> onBroken);
  CSendQueue(const CSendQueue&) = delete;
  CSendQueue& operator=(const CSendQueue&) = delete;

  enum class EPush {
    kTaken,
    kLost,     ///< taken, but the link broke
    kRefused,  ///< closed or full: nothing was taken
  };
  EPush PushBuffer(CIOCPBuffer* buffer);
  EPush PushText(const char* data, std::size_t bytes);

  /// Waits until fewer than kRoomBuffers items are queued or Close was
  /// called. @return false when `ms` milliseconds passed first.
  bool WaitRoom(int ms);

  /// Nothing is sent any more; Run gives everything back and returns.
  void Close();

  /// Body of the sender thread; returns after Close.
  void Run();

 private:
  struct SItem {
    CIOCPBuffer* m_pBuffer = nullptr;  // null for a text
    std::unique_ptr<char[]> m_pText;
    const char* m_pData = nullptr;
    std::size_t m_nBytes = 0;
  };
  using Lock = std::unique_lock<std::mutex>;

  EPush Push(Lock& lock, SItem item);
  static void KeepText(SItem& item);
  bool SendSome(Lock& lock);
  void Advance(std::size_t bytes);
  void GiveBack(Lock& lock);

  IStreamSocket& m_socket;
  IReleaseBuffer& m_sink;
  const std::function<void()> m_onBroken;

  std::mutex m_mutex;
  std::condition_variable m_work;       // for the sender thread
  std::condition_variable m_room;       // for those who wait for room
  std::deque<SItem> m_items;            // guarded by m_mutex
  std::vector<CIOCPBuffer*> m_vecDone;  // guarded by m_mutex; to give back
  std::size_t m_nTextBytes = 0;         // guarded by m_mutex; of queued texts
  bool m_bSending = false;              // guarded by m_mutex; one thread is in Send
  bool m_bClosed = false;               // guarded by m_mutex
  int m_nRoomWaiters = 0;               // guarded by m_mutex
};
