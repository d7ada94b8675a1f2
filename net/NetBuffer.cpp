// The receive side: cuts the byte stream of one link into packets.
//
// A packet that lies whole in the received chunk is delivered from there; only
// one that a chunk boundary cuts is gathered in a buffer of its own, which
// leaves the object while it is delivered, so that ClearData cannot free it.

#include "net/NetBuffer.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <mutex>
#include <utility>
#include <vector>

#include "net/DealNetData.h"
#include "net/LayerThread.h"
#include "net/LinkEvents.h"
#include "net/NetWorkPackHead.h"
#include "platform/SharedWord.h"

namespace {

// A gathered packet's memory is kept for the next one up to this size.
constexpr std::size_t kKeepBytes = 1 << 20;

std::atomic<std::size_t> sharedBytes{0};  // of large packets, in parsers that share

}  // namespace

// The part of a packet that has arrived so far.
class CNetBuffer::CGathered {
 public:
  explicit CGathered(bool shares) : m_bShares(shares) {}
  CGathered(const CGathered&) = delete;
  CGathered& operator=(const CGathered&) = delete;
  ~CGathered() { sharedBytes -= m_nShared; }

  const char* Data() const { return m_vecBytes.data(); }
  std::size_t Size() const { return m_vecBytes.size(); }

  void Swap(CGathered& other) {
    m_vecBytes.swap(other.m_vecBytes);
    std::swap(m_nShared, other.m_nShared);
  }

  void Clear() {
    if (m_vecBytes.capacity() > kKeepBytes) CGathered(m_bShares).Swap(*this);
    m_vecBytes.clear();
  }

  /// Growth doubles but never passes the packet's end.
  /// @return false when there is no room left for it
  bool Append(const char* data, std::size_t more, std::size_t packetBytes) {
    const std::size_t size = m_vecBytes.size() + more;
    if (size > m_vecBytes.capacity()) {
      const std::size_t room = std::min(packetBytes, std::max(size, 2 * size));
      if (!Share(room)) return false;
      m_vecBytes.reserve(room);
    }
    m_vecBytes.insert(m_vecBytes.end(), data, data + more);
    return true;
  }

 private:
  bool Share(std::size_t room) {
    if (!m_bShares || room <= kKeepBytes) return true;
    const std::size_t more = room - m_nShared;
    if ((sharedBytes += more) > kMostUnfinishedBytes) {
      sharedBytes -= more;
      return false;
    }
    m_nShared = room;
    return true;
  }

  const bool m_bShares;
  std::vector<char> m_vecBytes;
  std::size_t m_nShared = 0;
};

struct CNetBuffer::SState {
  std::mutex m_mutex;
  CGathered m_gathered{false};                     // guarded by m_mutex
  bool m_bShareMemory = false;                     // constant once bytes arrive
  CSharedWord<std::uint64_t> m_ullLinkSerial = 0;  // word; the layer's
  CSharedWord<std::uint64_t> m_ullGeneration = 0;  // word; moves on with every ClearData
  CSharedWord<std::uint64_t> m_ullServing = 0;     // word; generation that DealNetData began in
  CSharedWord<bool> m_bBroken = false;             // word
};

CNetBuffer::CNetBuffer(unsigned int ip, int port)
    : m_nLinkIP(ip), m_nLinkPort(port), m_pState(std::make_unique<SState>()) {}

CNetBuffer::~CNetBuffer() = default;

void CNetBuffer::DealNetData(const char* data, std::uint64_t length) {
  if (m_pState->m_bBroken) return;
  m_pState->m_ullServing = m_pState->m_ullGeneration;
  CGathered partial(m_pState->m_bShareMemory);
  {
    const std::lock_guard<std::mutex> guard(m_pState->m_mutex);
    partial.Swap(m_pState->m_gathered);
  }
  std::uint64_t used = partial.Size() == 0 ? 0 : CompletePartial(partial, data, length);
  while (used < length && !m_pState->m_bBroken && !IsCleared()) {
    const int chunk = static_cast<int>(std::min<std::uint64_t>(length - used, INT_MAX));
    const int parsed = ParseBuffer(chunk, data + used);
    if (parsed < 0) {
      m_pState->m_bBroken = true;
    } else if (parsed == 0) {
      break;
    } else {
      used += static_cast<std::uint64_t>(parsed);
    }
  }
  KeepPartial(partial, data + used, length - used);
}

// Fills the gathered packet from the chunk and delivers it when it is whole.
// Returns the bytes of the chunk that it took.
std::uint64_t CNetBuffer::CompletePartial(CGathered& partial, const char* data,
                                          std::uint64_t length) {
  std::uint64_t used = 0;
  std::size_t goal = kPackHeadBytes;
  for (;;) {
    if (partial.Size() >= goal) {
      const int packet = ParseBuffer_Common(static_cast<int>(goal), partial.Data());
      if (packet < 0) {
        m_pState->m_bBroken = true;
        return length;
      }
      if (static_cast<std::size_t>(packet) == partial.Size()) break;
      goal = static_cast<std::size_t>(packet);
    }
    const std::uint64_t take = std::min<std::uint64_t>(goal - partial.Size(), length - used);
    if (take == 0) return used;
    if (!partial.Append(data + used, static_cast<std::size_t>(take), goal)) {
      m_pState->m_bBroken = true;
      return length;
    }
    used += take;
  }
  LayerThread().m_strBehind = {};  // also where a delivery before was left by a throw
  Deliver(partial.Data());
  partial.Clear();
  return used;
}

// Keeps what is left of the chunk, or only the memory for it, for next time.
void CNetBuffer::KeepPartial(CGathered& partial, const char* data, std::uint64_t length) {
  if (m_pState->m_bBroken) return;
  if (length > 0) {
    std::size_t packet = kPackHeadBytes;
    if (length >= kPackHeadBytes) packet += CNetWorkPackHead::BodyLength(data);
    if (!partial.Append(data, static_cast<std::size_t>(length), packet)) {
      m_pState->m_bBroken = true;
      return;
    }
  }
  const std::lock_guard<std::mutex> guard(m_pState->m_mutex);
  if (!IsCleared()) m_pState->m_gathered.Swap(partial);
}

int CNetBuffer::ParseBuffer(int length, const char* data) {
  int used = 0;
  while (!IsCleared()) {
    const int packet = ParseBuffer_Common(length - used, data + used);
    if (packet < 0) return -1;
    if (packet == 0 || packet > length - used) break;
    const int next = used + packet;
    LayerThread().m_strBehind = {data + next, static_cast<std::size_t>(length - next)};
    Deliver(data + used);
    used = next;
  }
  LayerThread().m_strBehind = {};
  return used;
}

int CNetBuffer::ParseBuffer_Common(int length, const char* data) {
  if (length < kPackHeadBytes) return 0;
  if (!CNetWorkPackHead::IsValid(data)) return -1;
  return static_cast<int>(CNetWorkPackHead::BodyLength(data)) + kPackHeadBytes;
}

void CNetBuffer::Deliver(const char* packet) {
  if (m_pOwner == nullptr || IsCleared()) return;
  const int code = static_cast<int>(CNetWorkPackHead::Code(packet));
  // Only the layer itself announces these; a peer must not play them.
  if (code == NET_COMMAND_CONNECT || code == NET_COMMAND_DISCONNECT) return;
  const int bodyLength = static_cast<int>(CNetWorkPackHead::BodyLength(packet));
  m_pOwner->DealNetMsg(m_nLinkIP, m_nLinkPort, code, bodyLength,
                       bodyLength > 0 ? packet + kPackHeadBytes : nullptr, 0);
}

void CNetBuffer::ClearData() {
  const std::lock_guard<std::mutex> guard(m_pState->m_mutex);
  m_pState->m_ullGeneration += 1;
  CGathered(false).Swap(m_pState->m_gathered);
  m_pState->m_bBroken = false;
}

bool CNetBuffer::IsCleared() const {
  return m_pState->m_ullServing != m_pState->m_ullGeneration;
}

bool CNetBuffer::IsBroken() const {
  return m_pState->m_bBroken;
}

void CNetBuffer::ShareMemory() {
  m_pState->m_bShareMemory = true;
}

void CNetBuffer::SetLinkSerial(std::uint64_t serial) {
  m_pState->m_ullLinkSerial = serial;
}

std::uint64_t CNetBuffer::LinkSerial() const {
  return m_pState->m_ullLinkSerial;
}
