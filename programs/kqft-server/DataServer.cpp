// The server of kqft-server: its hooks.

#include "programs/kqft-server/DataServer.h"

#include <algorithm>
#include <utility>

#include "net/NetWorkManageEx.h"
#include "platform/System.h"
#include "programs/Directories.h"
#include "programs/kqft-server/DiskRoom.h"
#include "programs/kqft/Text.h"

namespace {

constexpr std::int64_t kRefusalPauseMs = 10000;
constexpr std::int64_t kOneSecondMs = 1000;

std::string Counted(std::size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

CDataServer::CDataServer(const SServerOptions& options, std::shared_ptr<CAccessLog> access,
                         std::shared_ptr<CTraffic> traffic)
    : m_strDirectory(DirectoryForLibrary(options.m_strDirectory)),
      m_llMinFree(options.m_llMinFree),
      m_bDeletes(!options.m_bNoDelete),
      m_pAccess(std::move(access)),
      m_pTraffic(std::move(traffic)),
      m_llStatusTime(System().SteadyMilliseconds()) {
  SetPrjDir(m_strDirectory);
  SetPrjSuffix(options.m_strSuffix);
  SetDurable(options.m_bDurable);
  m_pPrimaryNetWork->SetLocalAddress(options.m_strListenAddress);
  m_pPrimaryNetWork->SetAllowedPeers(options.m_vecAllowed);
  m_pPrimaryNetWork->SetLinkLimits(options.m_limits);
}

CDataServer::~CDataServer() {
  Stop();
}

int CDataServer::ListenPort() const {
  return m_pPrimaryNetWork->GetListenPort();
}

std::string CDataServer::Status() {
  const std::int64_t now = System().SteadyMilliseconds();
  const CTraffic::SState state = m_pTraffic->State();
  const std::int64_t passed = std::max<std::int64_t>(now - m_llStatusTime, 1);
  const std::int64_t rate = (state.m_llBytes - m_llStatusBytes) * kOneSecondMs / passed;
  m_llStatusTime = now;
  m_llStatusBytes = state.m_llBytes;
  std::string text = Counted(state.m_nLinks, "link") + ", " +
                     Counted(state.m_nTransfers, "transfer") + ", " + FormatSize(rate) + "/s";
  if (const std::int64_t free = RoomIn(m_strDirectory).m_llFree; free >= 0)
    text += ", " + FormatSize(free) + " free";
  return text;
}

// A disk that does not tell its room is used until it is full.
bool CDataServer::MayUpload(const STransferFacts&) {
  if (m_llMinFree == 0) return true;
  const std::int64_t free = RoomIn(m_strDirectory).m_llFree;
  return free < 0 || free >= m_llMinFree;
}

bool CDataServer::MayStore(const STransferFacts& file) {
  m_pTraffic->Move(file, true, false);
  return MayUpload(file);
}

bool CDataServer::MaySend(const STransferFacts& file) {
  m_pTraffic->Move(file, false, false);
  return true;
}

bool CDataServer::MayDelete(const STransferFacts&) {
  return m_bDeletes;
}

void CDataServer::OnUploaded(const STransferFacts& file) {
  m_pTraffic->Move(file, true, true);
  if (m_pAccess) m_pAccess->Transferred("upload", file);
}

void CDataServer::OnDownloaded(const STransferFacts& file) {
  m_pTraffic->Move(file, false, true);
  if (m_pAccess) m_pAccess->Transferred("download", file);
}

void CDataServer::OnProjectsListed(const STransferFacts& link) {
  if (m_pAccess) m_pAccess->Listed("list_projects", link);
}

void CDataServer::OnFilesListed(const STransferFacts& project) {
  if (m_pAccess) m_pAccess->Listed("list_files", project);
}

void CDataServer::OnDeleted(const STransferFacts& project) {
  m_pTraffic->Deleted(project.m_nResult);
  if (m_pAccess) m_pAccess->Deleted(project);
}

void CDataServer::OnConnected(const STransferFacts& link) {
  m_pTraffic->Begin(link);
  if (m_pAccess) m_pAccess->Connected(link);
}

void CDataServer::OnDisconnected(const STransferFacts& link) {
  const SLinkTotals totals = m_pTraffic->End(link);
  if (m_pAccess) m_pAccess->Disconnected(link, totals);
}

void CDataServer::OnRefused(const STransferFacts& what, ERefusal refusal) {
  m_pTraffic->Refused(refusal);
  if (m_pAccess) m_pAccess->Refused(what, refusal);
  if (refusal != ERefusal::kAddress) LogRefusal(what, refusal);
}

// Who floods must not fill the log.
void CDataServer::LogRefusal(const STransferFacts& what, ERefusal refusal) {
  std::int64_t untold = 0;
  {
    const std::lock_guard<std::mutex> lock(m_refusalMutex);
    const std::int64_t now = System().SteadyMilliseconds();
    ++m_llRefusalsUntold;
    if (m_llRefusalTime != 0 && now - m_llRefusalTime < kRefusalPauseMs) return;
    m_llRefusalTime = now;
    untold = std::exchange(m_llRefusalsUntold, 0) - 1;
  }
  std::string entry = "refused: " + std::string(RefusedThing(refusal)) + " " +
                      CNetWorkManageEx::TransIP(what.m_nIP) + " :" + std::to_string(what.m_nPort) +
                      " " + RefusalReason(refusal);
  if (!what.m_strPath.empty()) entry += " " + Printable(what.m_strPath);
  if (untold > 0) entry += ", and " + std::to_string(untold) + " before";
  WriteLog(entry + " \n");
}
