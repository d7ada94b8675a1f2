// Bulk transfer: the object, and what its two directions have in common.
//
// Until its run is over a file's status is -28; a file that is over gets its
// own. What then still has it was not reached, or not confirmed.

#include "client/BulkState.h"
#include "client/ClientState.h"
#include "client/KQFileBulkTransfer.h"
#include "client/TransferRun.h"
#include "net/LinkInfo.h"
#include "net/NetWorkManageEx.h"
#include "platform/KQEvent.h"
#include "platform/System.h"
#include "protocol/MessageCodes.h"

namespace {

constexpr int kLinkEndMs = 5000;  // so late the end of a link is told

}  // namespace

CKQFileBulkTransfer::CKQFileBulkTransfer() : m_pBulk(std::make_shared<SBulk>()) {
  m_pState->m_bPrompt = true;
  m_pState->m_nFirstStatus = ERROR_CODE_SEND_STOPPED;
}

// The worker uses members of this class.
CKQFileBulkTransfer::~CKQFileBulkTransfer() {
  EndWorker();
}

// The base says that the link is gone before what was on it is forgotten: a
// worker that finds nothing on its way any more must know why.
bool CKQFileBulkTransfer::DealNetMsg(unsigned int ip, int port, int nMsgType, int nLength,
                                     const char* pData, int extra) {
  const int length = pData == nullptr || nLength < 0 ? 0 : nLength;
  if (TakeDownload(nMsgType, length, pData)) return true;
  if (TakeUploadAnswer(nMsgType, length, pData)) return true;
  const bool taken =
      CKQFileTransServiceVisitor::DealNetMsg(ip, port, nMsgType, nLength, pData, extra);
  if (nMsgType == NET_COMMAND_DISCONNECT) Forget();
  return taken;
}

CNetBuffer* CKQFileBulkTransfer::CreateNetBuffer(unsigned int ip, int port, int a, int b) {
  Forget();
  return CKQFileTransServiceVisitor::CreateNetBuffer(ip, port, a, b);
}

// A link that is gone answers nothing.
void CKQFileBulkTransfer::Forget() {
  const std::lock_guard lock(m_pBulk->m_mutex);
  m_pBulk->m_onWay.clear();
  if (!m_pBulk->m_ready.empty()) m_pBulk->m_ready.front().m_bAsked = false;
  if (m_pBulk->m_current) m_pBulk->m_vecOver.push_back(std::move(*m_pBulk->m_current));
  m_pBulk->m_current.reset();
  m_pBulk->m_bBroken = false;
  m_pBulk->m_changed.notify_all();
}

// Under the mutex. An answer that is missing and one too many look alike: from
// here on each may be another file's.
void CKQFileBulkTransfer::Distrust() {
  m_pBulk->m_bBroken = true;
  for (SBulk::SOnWay& file : m_pBulk->m_onWay) file.m_ullRun = 0;
  m_pBulk->m_changed.notify_all();
}

bool CKQFileBulkTransfer::IsBroken() {
  const std::lock_guard lock(m_pBulk->m_mutex);
  return m_pBulk->m_bBroken;
}

// Under the mutex. Where a limit holds the link back, a single packet may take
// long: then its parts count, too.
std::uint64_t CKQFileBulkTransfer::CountEvents() const {
  const bool limited = m_pState->m_pRateLimit != nullptr;
  return m_pBulk->m_ullEvents +
         (limited ? static_cast<std::uint64_t>(m_pNetWork->BytesReceived()) : 0);
}

std::vector<int> CKQFileBulkTransfer::GetStatuses() const {
  const std::lock_guard guard(m_pState->m_mutex);
  std::vector<int> statuses;
  statuses.reserve(m_vecKey.size());
  for (const Channel_Key_Value& record : m_vecKey) statuses.push_back(record.m_nStatus);
  return statuses;
}

// The worker before shares what is on its way, and may have to end a file. False
// when this one was stopped meanwhile.
bool CKQFileBulkTransfer::BeginBulk(const CTransferRun& run) {
  std::unique_lock lock(m_pBulk->m_mutex);
  const auto isFree = [this] { return !m_pBulk->m_bWorks; };
  while (!System().Wait(m_pBulk->m_changed, lock, kBulkStepMs, isFree)) {
    if (IsTransStopped()) return false;
  }
  m_pBulk->m_bWorks = true;
  m_pBulk->m_ullRun = run.m_ullNumber;
  m_pBulk->m_vecAgain.clear();
  m_pBulk->m_bSilent = false;
  m_nBufTaken = 0;
  m_nBufReleased = 0;
  return true;
}

// Answers that come from here on find their files, but change no result. Those
// that a link brought before it was lost are waited for.
void CKQFileBulkTransfer::EndBulk(const CTransferRun& run) {
  if (IsBroken()) m_pNetWork->CloseAllConnect();
  bool lost = false;
  {
    std::unique_lock lock(m_pBulk->m_mutex);
    const ILinkInfo* const link = m_pLinkInfo;
    lost = link == nullptr || !link->IsLink();
    if (lost) {
      System().Wait(m_pBulk->m_changed, lock, kLinkEndMs, [this] { return !m_bConnect; });
    }
    for (SBulk::SOnWay& file : m_pBulk->m_onWay) file.m_ullRun = 0;
    // As the visitor leaves: what is still to come does not disturb, unless
    // nobody knows whether it comes.
    for (CKQEvent* const event : {m_evReply, m_evFileEnd}) {
      if (m_pBulk->m_bSilent) {
        event->ResetKQEvent();
      } else {
        event->SetKQEvent();
      }
    }
    m_pBulk->m_ullRun = 0;
    m_pBulk->m_bWorks = false;
    m_pBulk->m_changed.notify_all();
  }
  if (!lost && IsConnect()) return;
  const std::lock_guard lock(m_pState->m_mutex);
  if (run.m_ullNumber != m_pState->m_ullRun) return;
  for (Channel_Key_Value& record : m_vecKey) {
    if (record.m_nStatus == ERROR_CODE_SEND_STOPPED) record.m_nStatus = ERROR_CODE_CLIENT_SENDDATA;
  }
}
