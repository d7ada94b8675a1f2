#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
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
/// Whoever pushes also sends, as much as the socket takes, without waking
/// anybody. A caller that asked for room before (WaitRoom) is expected back
/// with its next packet: what the socket did not take then waits for it, and
/// it is that caller's thread which waits for the socket. What anybody else
/// leaves behind, or the caller does not come back for, the link's sender
/// thread sends. Who answers many questions gathers answers likewise. Buffers go back to the sink
/// on that thread only.
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

  /// Waits for about `ms` milliseconds at most, sending meanwhile.
  /// @return true when less than a block is queued and not much more is on its
  ///         way back, or Close was called; false: ask again.
  bool WaitRoom(int ms);

  /// The next packet may wait for those behind it: the caller pushes more
  /// before long, and calls SendGathered when it does not.
  void Gather();

  /// Sends what waits since Gather.
  void SendGathered();

  /// Waits until little of the texts is left to send, or Close was called.
  /// @return whether texts came since the last call
  bool WaitTextRoom();

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
  static bool KeepText(SItem& item);
  bool IsFullWith(std::size_t more) const;
  bool HasRoom() const;
  bool HasManyDone() const;
  bool SendSome(Lock& lock, int waitMs);
  void SendWhatIsLeft(Lock& lock);
  void Advance(std::size_t bytes);
  void WakeSenderThread();
  void GiveBack(Lock& lock);

  IStreamSocket& m_socket;
  IReleaseBuffer& m_sink;
  const std::function<void()> m_onBroken;

  std::mutex m_mutex;
  std::condition_variable m_work;       // for the sender thread
  std::condition_variable m_room;       // for those who wait while another thread sends
  std::condition_variable m_textRoom;   // for the one who waits for texts to go
  std::deque<SItem> m_items;            // guarded by m_mutex
  std::vector<CIOCPBuffer*> m_vecDone;  // guarded by m_mutex; to give back
  std::size_t m_nDoneBytes = 0;         // guarded by m_mutex; of those
  std::size_t m_nBytes = 0;             // guarded by m_mutex; queued
  std::size_t m_nTextBytes = 0;         // guarded by m_mutex; of queued texts
  std::uint64_t m_ullTaken = 0;         // guarded by m_mutex; items that left m_items
  bool m_bTexts = false;                // guarded by m_mutex; since the last WaitTextRoom
  bool m_bSending = false;              // guarded by m_mutex; one thread is in Send
  bool m_bAttended = false;             // guarded by m_mutex; who asked for room comes back
  bool m_bWanted = false;               // guarded by m_mutex; the sender thread has to send
  bool m_bIdle = false;                 // guarded by m_mutex; the sender thread sleeps untimed
  bool m_bClosed = false;               // guarded by m_mutex
  int m_nRoomWaiters = 0;               // guarded by m_mutex
};
