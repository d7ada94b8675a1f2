// The outgoing queue of one link and its sender thread.

#include "net/SendQueue.h"

#include <cstring>
#include <new>
#include <utility>

#include "net/DealNetData.h"
#include "net/IOCPBuffer.h"
#include "net/Sockets.h"
#include "platform/System.h"

namespace {

// A caller that comes back for room leaves its packets until 16 full ones, about
// what one block of a file makes, or so many small ones can go in one call. More
// than those wait for nobody: a slow link keeps no more memory than a fast one.
constexpr std::size_t kPacketBytes = std::size_t{64} << 10;
constexpr std::size_t kRoomBytes = 15 * kPacketBytes;
constexpr std::size_t kRoomItems = 48;

// Queued, and sent but not given back.
constexpr std::size_t kHeldBytes = 32 * kPacketBytes;
constexpr std::size_t kHeldItems = 2 * kRoomItems;

constexpr std::size_t kMaxQueuedTextBytes = std::size_t{64} << 20;

// What a peer may leave unread before its next request has to wait.
constexpr std::size_t kRoomTextBytes = std::size_t{256} << 10;
constexpr std::size_t kRoomTexts = 1024;

constexpr int kSlicesPerSend = kRoomItems;

// How often the sender thread looks after a link that is in use: buffers that
// were sent, and packets that nobody came back for, wait this long at most.
constexpr int kLookAfterMs = 20;

}  // namespace

CSendQueue::CSendQueue(IStreamSocket& socket, IReleaseBuffer& sink, std::function<void()> onBroken)
    : m_socket(socket), m_sink(sink), m_onBroken(std::move(onBroken)) {}

CSendQueue::EPush CSendQueue::PushBuffer(CIOCPBuffer* buffer) {
  Lock lock(m_mutex);
  if (m_bClosed) return EPush::kRefused;
  SItem item;
  item.m_pBuffer = buffer;
  item.m_pData = buffer->m_pBuf;
  item.m_nBytes = static_cast<std::size_t>(buffer->m_nDataLen);
  return Push(lock, std::move(item));
}

CSendQueue::EPush CSendQueue::PushText(const char* data, std::size_t bytes) {
  Lock lock(m_mutex);
  // A single answer is taken whatever its size; more of them only up to the
  // bound, since their memory is the layer's.
  if (m_bClosed || m_nTextBytes > kMaxQueuedTextBytes) return EPush::kRefused;
  SItem item;
  item.m_pData = data;
  item.m_nBytes = bytes;
  m_nTextBytes += bytes;
  m_bTexts = true;
  return Push(lock, std::move(item));
}

// Queues the item and sends from the front of the queue, unless another
// thread is sending: that one sees to it.
CSendQueue::EPush CSendQueue::Push(Lock& lock, SItem item) {
  const bool attended = std::exchange(m_bAttended, false);
  m_nBytes += item.m_nBytes;
  if (m_bSending || (attended && !IsFullWith(1))) {
    if (!KeepText(item)) {
      m_nTextBytes -= item.m_nBytes;
      m_nBytes -= item.m_nBytes;
      return EPush::kRefused;
    }
    m_items.push_back(std::move(item));
    if (!attended) m_bWanted = true;
    WakeSenderThread();
    return EPush::kTaken;
  }
  m_items.push_back(std::move(item));
  const std::uint64_t own = m_ullTaken + m_items.size();
  bool sound = SendSome(lock, 0);
  const bool whole = m_ullTaken >= own;
  if (!whole) {
    const auto rest = m_items.begin() + static_cast<std::ptrdiff_t>(own - m_ullTaken - 1);
    if (!KeepText(*rest)) {  // out of memory: what has begun cannot be ended
      m_nTextBytes -= rest->m_nBytes;
      m_nBytes -= rest->m_nBytes;
      m_items.erase(rest);
      sound = false;
    }
  }
  if (!m_items.empty() && !attended) m_bWanted = true;
  WakeSenderThread();
  if (sound) return whole || !m_bClosed ? EPush::kTaken : EPush::kLost;
  lock.unlock();
  m_onBroken();
  return EPush::kLost;
}

// A text is its caller's memory until here. Returns false when there is none
// for it.
bool CSendQueue::KeepText(SItem& item) {
  if (item.m_pBuffer != nullptr) return true;
  item.m_pText.reset(new (std::nothrow) char[item.m_nBytes]);
  if (item.m_pText == nullptr) return false;
  std::memcpy(item.m_pText.get(), item.m_pData, item.m_nBytes);
  item.m_pData = item.m_pText.get();
  return true;
}

bool CSendQueue::WaitRoom(int ms) {
  Lock lock(m_mutex);
  m_bAttended = true;
  if (HasRoom()) return true;
  if (m_bSending || !IsFullWith(0)) {
    ++m_nRoomWaiters;
    System().Wait(m_room, lock, ms, [this] { return HasRoom() || (!m_bSending && IsFullWith(0)); });
    --m_nRoomWaiters;
  } else if (!SendSome(lock, ms)) {
    lock.unlock();
    m_onBroken();
    lock.lock();
  } else {
    WakeSenderThread();
  }
  return HasRoom();
}

// @param more items that are about to come, counted in the bytes already
bool CSendQueue::IsFullWith(std::size_t more) const {
  return m_items.size() + more >= kRoomItems || m_nBytes > kRoomBytes;
}

// Sent buffers that were not given back yet count, too: where many links are
// busy their threads may be late.
bool CSendQueue::HasRoom() const {
  return m_bClosed || (!IsFullWith(0) && m_items.size() + m_vecDone.size() < kHeldItems &&
                       m_nBytes + m_nDoneBytes < kHeldBytes);
}

// Sent buffers go back so many at a time, so that the sender thread is not woken
// for each.
bool CSendQueue::HasManyDone() const {
  return m_vecDone.size() >= kRoomItems || m_nDoneBytes > kRoomBytes;
}

void CSendQueue::Gather() {
  const std::lock_guard<std::mutex> guard(m_mutex);
  m_bAttended = true;
}

void CSendQueue::SendGathered() {
  Lock lock(m_mutex);
  m_bAttended = false;
  if (m_items.empty()) return;
  const bool sound = m_bSending || SendSome(lock, 0);
  if (!m_items.empty()) m_bWanted = true;
  WakeSenderThread();
  lock.unlock();
  if (!sound) m_onBroken();
}

bool CSendQueue::WaitTextRoom() {
  Lock lock(m_mutex);
  while (!m_bClosed && (m_nTextBytes > kRoomTextBytes || m_items.size() > kRoomTexts)) {
    m_bWanted = true;
    WakeSenderThread();
    m_textRoom.wait(lock);
  }
  return std::exchange(m_bTexts, false);
}

void CSendQueue::Close() {
  const std::lock_guard<std::mutex> guard(m_mutex);
  m_bClosed = true;
  m_work.notify_all();
  m_room.notify_all();
  m_textRoom.notify_all();
}

void CSendQueue::Run() {
  Lock lock(m_mutex);
  bool active = false;
  while (!m_bClosed) {
    if (!active) {
      m_bIdle = true;
      m_work.wait(lock, [this] { return m_bClosed || !m_items.empty() || !m_vecDone.empty(); });
      m_bIdle = false;
    }
    const std::uint64_t taken = m_ullTaken;
    const bool called = System().Wait(m_work, lock, kLookAfterMs, [this] {
      return m_bClosed || (m_bWanted && !m_bSending) || HasManyDone();
    });
    active = called || !m_items.empty() || !m_vecDone.empty();
    GiveBack(lock);
    const bool left = !called && !m_bSending && m_ullTaken == taken;  // nobody came back
    if (left || m_bWanted) SendWhatIsLeft(lock);
  }
  m_work.wait(lock, [this] { return !m_bSending; });
  for (SItem& item : m_items) {
    if (item.m_pBuffer != nullptr) m_vecDone.push_back(item.m_pBuffer);
  }
  m_items.clear();
  m_nTextBytes = 0;
  m_nBytes = 0;
  GiveBack(lock);
}

// Until somebody waits for room: that one goes on sending.
void CSendQueue::SendWhatIsLeft(Lock& lock) {
  while (!m_items.empty() && !m_bSending && !m_bClosed && m_nRoomWaiters == 0) {
    if (SendSome(lock, -1)) continue;
    lock.unlock();
    m_onBroken();
    lock.lock();
  }
  if (!m_bSending) m_bWanted = false;
}

// One gather send of what is queued first. When the socket is full, waits for
// it, at most `waitMs` (-1: without end, 0: not at all). Returns false when
// the link is broken.
bool CSendQueue::SendSome(Lock& lock, int waitMs) {
  SSlice slices[kSlicesPerSend];
  int count = 0;
  for (const SItem& item : m_items) {
    if (count == kSlicesPerSend) break;
    slices[count++] = {item.m_pData, item.m_nBytes};
  }
  m_bSending = true;
  lock.unlock();
  std::size_t sent = 0;
  EIoResult result = m_socket.Send(slices, count, sent);
  if (result == EIoResult::kWouldBlock && waitMs != 0) {
    m_socket.WaitSend(waitMs);
    result = m_socket.Send(slices, count, sent);
  }
  lock.lock();
  m_bSending = false;
  Advance(sent);
  if (m_nRoomWaiters > 0) m_room.notify_all();
  m_textRoom.notify_all();
  if (m_bClosed) m_work.notify_all();
  return result != EIoResult::kClosed;
}

// Takes `bytes` sent bytes off the front of the queue.
void CSendQueue::Advance(std::size_t bytes) {
  while (bytes > 0) {
    SItem& item = m_items.front();
    const std::size_t part = bytes < item.m_nBytes ? bytes : item.m_nBytes;
    bytes -= part;
    m_nBytes -= part;
    item.m_pData += part;
    item.m_nBytes -= part;
    if (item.m_pBuffer == nullptr) m_nTextBytes -= part;
    if (item.m_nBytes > 0) break;
    if (item.m_pBuffer != nullptr) {
      m_vecDone.push_back(item.m_pBuffer);
      m_nDoneBytes += static_cast<std::size_t>(item.m_pBuffer->m_nDataLen);
    }
    m_items.pop_front();
    ++m_ullTaken;
  }
}

// Only when there is something to do that it will not see by itself in time.
void CSendQueue::WakeSenderThread() {
  const bool work = m_bWanted || HasManyDone();
  if (work || (m_bIdle && (!m_items.empty() || !m_vecDone.empty()))) m_work.notify_one();
}

// Hands finished buffers to the sink, without the lock.
void CSendQueue::GiveBack(Lock& lock) {
  while (!m_vecDone.empty()) {
    std::vector<CIOCPBuffer*> done;
    done.swap(m_vecDone);
    m_nDoneBytes = 0;
    if (m_nRoomWaiters > 0) m_room.notify_all();
    lock.unlock();
    for (CIOCPBuffer* buffer : done) {
      try {
        m_sink.ReleaseIOCPBuffer(buffer);
      } catch (...) {  // a host's override must not end the sender
      }
    }
    lock.lock();
  }
}
