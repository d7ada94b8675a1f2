// The outgoing queue of one link and its sender thread.

#include "net/SendQueue.h"

#include <cstring>
#include <utility>

#include "net/DealNetData.h"
#include "net/IOCPBuffer.h"
#include "net/Sockets.h"
#include "platform/System.h"

namespace {

constexpr std::size_t kRoomBuffers = 64;

// A waiter for room is woken when this many are left, so that it can go on
// for a while before it has to wait again.
constexpr std::size_t kRoomWakeBuffers = 32;

constexpr std::size_t kMaxQueuedTextBytes = std::size_t{64} << 20;
constexpr int kSlicesPerSend = 16;

// Sent buffers go back several at a time, at the latest after this long, so
// that the sender thread is not woken for each.
constexpr std::size_t kDoneTogether = 8;
constexpr int kDoneWaitMs = 1;

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
  return Push(lock, std::move(item));
}

// Queues the item; when nothing is before it, tries to send it here and now.
CSendQueue::EPush CSendQueue::Push(Lock& lock, SItem item) {
  if (!m_items.empty() || m_bSending) {
    KeepText(item);
    m_items.push_back(std::move(item));
    m_work.notify_one();
    return EPush::kTaken;
  }
  const SSlice slice{item.m_pData, item.m_nBytes};
  std::size_t sent = 0;
  m_bSending = true;
  lock.unlock();
  const bool broken = m_socket.Send(&slice, 1, sent) == EIoResult::kClosed;
  lock.lock();
  m_bSending = false;
  item.m_pData += sent;
  item.m_nBytes -= sent;
  if (item.m_pBuffer == nullptr) m_nTextBytes -= sent;
  const bool whole = item.m_nBytes == 0;
  if (!whole) {
    KeepText(item);
    m_items.push_front(std::move(item));  // before what came meanwhile
  } else if (item.m_pBuffer != nullptr) {
    m_vecDone.push_back(item.m_pBuffer);
  }
  const bool giveBack = m_vecDone.size() == 1 || m_vecDone.size() >= kDoneTogether;
  if (m_bClosed || !m_items.empty() || giveBack) m_work.notify_one();
  if (!broken) return whole || !m_bClosed ? EPush::kTaken : EPush::kLost;
  lock.unlock();
  m_onBroken();
  return EPush::kLost;
}

// A text is its caller's memory until here.
void CSendQueue::KeepText(SItem& item) {
  if (item.m_pBuffer != nullptr) return;
  item.m_pText.reset(new char[item.m_nBytes]);
  std::memcpy(item.m_pText.get(), item.m_pData, item.m_nBytes);
  item.m_pData = item.m_pText.get();
}

bool CSendQueue::WaitRoom(int ms) {
  Lock lock(m_mutex);
  const auto hasRoom = [this] { return m_bClosed || m_items.size() < kRoomBuffers; };
  if (hasRoom()) return true;
  ++m_nRoomWaiters;
  const bool room = System().Wait(m_room, lock, ms, hasRoom);
  --m_nRoomWaiters;
  return room;
}

void CSendQueue::Close() {
  const std::lock_guard<std::mutex> guard(m_mutex);
  m_bClosed = true;
  m_work.notify_all();
  m_room.notify_all();
}

void CSendQueue::Run() {
  Lock lock(m_mutex);
  while (!m_bClosed) {
    m_work.wait(lock, [this] {
      return m_bClosed || (!m_bSending && !m_items.empty()) || !m_vecDone.empty();
    });
    System().Wait(m_work, lock, kDoneWaitMs, [this] {
      return m_bClosed || !m_items.empty() || m_vecDone.size() >= kDoneTogether;
    });
    GiveBack(lock);
    if (!m_bClosed && !m_bSending && !m_items.empty() && !SendSome(lock)) {
      lock.unlock();
      m_onBroken();
      lock.lock();
    }
  }
  m_work.wait(lock, [this] { return !m_bSending; });
  for (SItem& item : m_items) {
    if (item.m_pBuffer != nullptr) m_vecDone.push_back(item.m_pBuffer);
  }
  m_items.clear();
  m_nTextBytes = 0;
  GiveBack(lock);
}

// One gather send of what is queued first, waiting for the socket when it is
// full. Returns false when the link is broken.
bool CSendQueue::SendSome(Lock& lock) {
  SSlice slices[kSlicesPerSend];
  int count = 0;
  for (const SItem& item : m_items) {
    if (count == kSlicesPerSend) break;
    slices[count++] = {item.m_pData, item.m_nBytes};
  }
  m_bSending = true;
  lock.unlock();
  std::size_t sent = 0;
  const EIoResult result = m_socket.Send(slices, count, sent);
  if (result == EIoResult::kWouldBlock) m_socket.WaitSend();
  lock.lock();
  m_bSending = false;
  Advance(sent);
  return result != EIoResult::kClosed;
}

// Takes `bytes` sent bytes off the front of the queue.
void CSendQueue::Advance(std::size_t bytes) {
  while (bytes > 0) {
    SItem& item = m_items.front();
    const std::size_t part = bytes < item.m_nBytes ? bytes : item.m_nBytes;
    bytes -= part;
    item.m_pData += part;
    item.m_nBytes -= part;
    if (item.m_pBuffer == nullptr) m_nTextBytes -= part;
    if (item.m_nBytes > 0) break;
    if (item.m_pBuffer != nullptr) m_vecDone.push_back(item.m_pBuffer);
    m_items.pop_front();
  }
  if (m_nRoomWaiters > 0 && m_items.size() <= kRoomWakeBuffers) m_room.notify_all();
}

// Hands finished buffers to the sink, without the lock.
void CSendQueue::GiveBack(Lock& lock) {
  while (!m_vecDone.empty()) {
    std::vector<CIOCPBuffer*> done;
    done.swap(m_vecDone);
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
