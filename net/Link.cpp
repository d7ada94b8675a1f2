// One connection: set-up, delivery of what arrives, disconnect.

#include "net/Link.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "net/AddressLane.h"
#include "net/DealNetData.h"
#include "net/LayerThread.h"
#include "net/LinkEvents.h"
#include "net/LinkOwner.h"
#include "net/NetBuffer.h"
#include "net/NetWorkPackHead.h"
#include "net/Pacing.h"
#include "net/RateLimit.h"
#include "net/Sockets.h"
#include "platform/System.h"

namespace {

// What a link receives into. Holds several data packets whole, so that few of
// them are cut at its end and have to be moved.
constexpr std::size_t kReceiveBytes = std::size_t{1} << 20;

// Less room than this is not worth a call: what is left is moved to the front.
constexpr std::size_t kLeastRoomBytes = std::size_t{64} << 10;

// Of one who floods.
constexpr int kQuestionsPerPause = 8;
constexpr int kPauseMs = 5;

// How late a link that waits for its rate limit notices its end.
constexpr int kLimitWaitMs = 50;

constexpr std::size_t kShellLocks = 32;

// A whole packet that will be delivered.
bool HoldsPacket(const char* data, std::size_t bytes) {
  if (bytes < kPackHeadBytes || !CNetWorkPackHead::IsValid(data)) return false;
  const unsigned code = CNetWorkPackHead::Code(data);
  return code != NET_COMMAND_CONNECT && code != NET_COMMAND_DISCONNECT &&
         CNetWorkPackHead::BodyLength(data) <= bytes - kPackHeadBytes;
}

}  // namespace

CLink::CLink(ILinkOwner& owner, std::unique_ptr<IStreamSocket> socket, std::uint64_t serial,
             std::shared_ptr<CAddressLane> lane)
    : m_owner(owner),
      m_pSocket(std::move(socket)),
      m_ullSerial(serial),
      m_nIP(m_pSocket->RemoteIP()),
      m_nPort(m_pSocket->RemotePort()),
      m_pLane(std::move(lane)),
      m_queue(*m_pSocket, owner.Sink(), [this] { MarkDown(); }) {}

CLink::~CLink() = default;

void CLink::Deliver(std::uint64_t turn) {
  const bool delivered = SetUp(turn);
  if (!delivered) MarkDown();
  m_owner.NoteSetUp(*this);
  if (delivered) m_owner.NoteEnd(Receive());
  MarkDown();
  if (delivered && m_pLane->Enter()) {
    if (!m_owner.IsStopping()) Announce(NET_COMMAND_DISCONNECT);
    m_pLane->Leave();
  }
}

// Asks the sink for a parser and announces the link. Returns whether it was
// announced, so that it must be announced gone.
bool CLink::SetUp(std::uint64_t turn) {
  if (!m_pLane->Enter(turn)) return false;
  bool announced = false;
  if (!m_owner.IsStopping()) {
    try {
      m_pParser = m_owner.Sink().CreateNetBuffer(m_nIP, m_nPort, 0, 0);
    } catch (...) {
      m_pParser = nullptr;
    }
    if (m_pParser != nullptr && !m_owner.IsStopping()) {
      m_pParser->SetLinkSerial(m_ullSerial);
      m_bServed = true;
      Announce(NET_COMMAND_CONNECT);
      announced = true;
    }
  }
  m_pLane->Leave();
  return announced;
}

// Whole packets are delivered from where they were received; the beginning of
// the next one waits for its rest. The parser gathers only packets that would
// not fit. Returns why nothing more can be received.
ELinkFailure CLink::Receive() {
  const std::unique_ptr<char[]> data(new char[kReceiveBytes]);
  std::size_t begin = 0;
  std::size_t end = 0;
  bool judged = !m_owner.JudgesFirstBytes();
  while (m_bUp) {
    if (kReceiveBytes - end < kLeastRoomBytes) {
      std::memmove(data.get(), data.get() + begin, end - begin);
      end -= begin;
      begin = 0;
    }
    std::size_t bytes = 0;
    const std::size_t room = MayReceive(kReceiveBytes - end);
    const EIoResult result = m_pSocket->Receive(data.get() + end, room, bytes);
    if (result != EIoResult::kDone) break;
    m_owner.NoteReceived(bytes);
    end += bytes;
    if (!judged && !CNetWorkPackHead::MayBegin(data.get(), end)) return ELinkFailure::kForeign;
    judged = judged || end >= kPackHeadBytes;
    if (!DeliverPackets(data.get(), end, begin)) {
      return m_pParser->IsBroken() ? ELinkFailure::kForeign : ELinkFailure::kEnded;
    }
    if (begin == end) begin = end = 0;
  }
  return ELinkFailure::kEnded;
}

// A limit is asked before, and told of what came; what may not be read yet
// holds the other side back.
std::size_t CLink::MayReceive(std::size_t room) const {
  IRateLimit* const limit = m_owner.RateLimit();
  if (limit == nullptr) return room;
  int granted = 0;
  while (m_bUp && granted == 0) granted = limit->Wait(kLimitWaitMs);
  return std::min(room, static_cast<std::size_t>(std::max(granted, 1)));
}

// Delivers what can be from `begin` on, and moves that. Returns false when
// nothing more can be read from the link.
bool CLink::DeliverPackets(const char* data, std::size_t end, std::size_t& begin) {
  int answered = 0;
  bool sound = true;
  bool& more = LayerThread().m_bMoreToCome;
  while (const std::size_t whole = sound ? DeliverableBytes(data + begin, end - begin) : 0) {
    const bool follows = more;
    const std::string_view behind(data + begin + whole, end - begin - whole);
    more = m_owner.Listens() && HoldsPacket(behind.data(), behind.size());
    LayerThread().m_strArrived = more ? behind : std::string_view();
    if (more) m_queue.Gather();
    sound = DeliverChunk(data + begin, whole);
    if (!sound || (follows && !more)) m_queue.SendGathered();
    begin += whole;
    if (sound && m_owner.Listens() && m_queue.WaitTextRoom()) Pace(++answered);
  }
  more = false;
  LayerThread().m_strArrived = {};
  return sound;
}

// Who floods a server with questions waits, so that the others do not.
void CLink::Pace(int answered) {
  if (answered > kQuestionsAtOnce && answered % kQuestionsPerPause == 0) System().Sleep(kPauseMs);
}

// How many of the bytes the parser can use now: whole packets, any part of a
// large one, and a malformed head, which it has to see. Requests go one by
// one, because each may leave a long answer behind.
std::size_t CLink::DeliverableBytes(const char* data, std::size_t bytes) {
  std::size_t used = std::min(m_nPassOn, bytes);
  m_nPassOn -= used;
  if (used > 0 && m_owner.Listens()) return used;
  while (bytes - used >= kPackHeadBytes) {
    if (!CNetWorkPackHead::IsValid(data + used)) return bytes;
    const std::size_t packet = CNetWorkPackHead::BodyLength(data + used) + kPackHeadBytes;
    if (packet > kReceiveBytes / 2) {
      m_nPassOn = packet - std::min(packet, bytes - used);
    } else if (packet > bytes - used) {
      break;
    }
    used += std::min(packet, bytes - used);
    if (m_owner.Listens()) break;
  }
  return used;
}

// Returns false when nothing more can be read from the link.
bool CLink::DeliverChunk(const char* data, std::size_t bytes) {
  if (!m_pLane->Enter()) return false;
  bool goOn = !m_owner.IsStopping();
  // A parser that serves a newer link has no use for this one's bytes.
  if (goOn && m_pParser->LinkSerial() == m_ullSerial) {
    try {
      m_pParser->DealNetData(data, bytes);
    } catch (...) {  // a host's override must not end the layer
    }
    goOn = m_pParser->LinkSerial() != m_ullSerial || !m_pParser->IsBroken();
  }
  m_pLane->Leave();
  return goOn;
}

void CLink::Announce(int code) {
  try {
    m_owner.Sink().DealNetMsg(m_nIP, m_nPort, code, 0, nullptr, 0);
  } catch (...) {  // as above
  }
}

void CLink::MarkDown() {
  if (!m_bUp.Exchange(false)) return;
  m_owner.NoteDown();
  m_pSocket->Shutdown();
  m_queue.Close();
}

CLinkShell::CLinkShell(const std::shared_ptr<CLink>& link)
    : m_nIP(link->IP()), m_nPort(link->Port()), m_pLink(link) {}

std::mutex& CLinkShell::Lock() const {
  static std::array<std::mutex, kShellLocks> locks;
  return locks[(reinterpret_cast<std::uintptr_t>(this) / sizeof(CLinkShell)) % kShellLocks];
}

std::shared_ptr<CLink> CLinkShell::Link() const {
  const std::lock_guard<std::mutex> guard(Lock());
  return m_pLink;
}

void CLinkShell::Release() {
  std::shared_ptr<CLink> link;  // dies after the lock is left
  const std::lock_guard<std::mutex> guard(Lock());
  link.swap(m_pLink);
}

bool CLinkShell::IsLink() const {
  const std::lock_guard<std::mutex> guard(Lock());
  return m_pLink != nullptr && m_pLink->IsUp();
}

bool CLinkShell::WaitSendRoom(int ms) {
  if (LayerThread().m_bOfLayer) return true;
  const std::shared_ptr<CLink> link = Link();
  return link == nullptr || link->Queue().WaitRoom(ms);
}

CLinkShell* CLinkShells::Add(const std::shared_ptr<CLink>& link) {
  const std::lock_guard<std::mutex> guard(m_mutex);
  return &m_shells.emplace_back(link);
}
