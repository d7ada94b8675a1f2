// What the server's hooks are asked and told of a session's transfers.
//
// A hook belongs to a host; what it throws ends in the session.

#include <utility>

#include "net/TransNet.h"
#include "platform/System.h"
#include "protocol/ResultCodes.h"
#include "session/SessionState.h"
#include "session/TransClient.h"

namespace {

constexpr std::int64_t kAskBytes = 1 << 20;

template <typename Hook>
void IgnoreWhatIsThrown(const Hook& hook) {
  try {
    hook();
  } catch (...) {
    // The host's own affair; what was done stays done.
  }
}

}  // namespace

STransferFacts CTransClient::Facts(std::string_view path) const {
  STransferFacts facts;
  facts.m_nIP = m_nLinkIP;
  facts.m_nPort = m_nLinkPort;
  facts.m_strPath = path;
  return facts;
}

bool CTransClient::Allows(MayHook may, const STransferFacts& facts, ERefusal refusal) {
  if (m_pTransNet == nullptr) return true;
  bool allowed = false;  // also where the hook cannot decide
  IgnoreWhatIsThrown([&] { allowed = (m_pTransNet->*may)(facts); });
  if (!allowed) IgnoreWhatIsThrown([&] { m_pTransNet->OnRefused(facts, refusal); });
  return allowed;
}

void CTransClient::Tell(OnHook on, const STransferFacts& facts) {
  if (m_pTransNet != nullptr) IgnoreWhatIsThrown([&] { (m_pTransNet->*on)(facts); });
}

void CTransClient::TellFailed(OnHook on, std::string_view path, int result) {
  STransferFacts facts = Facts(path);
  facts.m_nResult = result;
  Tell(on, facts);
}

void CTransClient::BeginUpload(std::string_view path) {
  EndUpload(ERROR_CODE_STOP_SERVICE);
  SUploadReport& upload = m_pState->m_upload;
  upload = SUploadReport();
  upload.m_bRunning = true;
  upload.m_llBegan = System().SteadyMilliseconds();
  upload.m_facts = Facts(path);
}

bool CTransClient::MayStoreNext() {
  SUploadReport& upload = m_pState->m_upload;
  const bool covered = upload.m_facts.m_llBytes + m_pState->m_ahead.Reach() < upload.m_llAskAt;
  if (!upload.m_bRunning || upload.m_bRefused || covered) return !upload.m_bRefused;
  upload.m_llAskAt = upload.m_facts.m_llBytes + kAskBytes;
  upload.m_facts.m_llMilliseconds = System().SteadyMilliseconds() - upload.m_llBegan;
  upload.m_bRefused = !Allows(&ITransNet::MayStore, upload.m_facts, ERefusal::kUploadRest);
  if (upload.m_bRefused) WriteLog("CTransClient::ReceiveData refused by the server \n");
  return !upload.m_bRefused;
}

void CTransClient::EndUpload(int result) {
  SUploadReport& upload = m_pState->m_upload;
  if (!upload.m_bRunning) return;
  upload.m_bRunning = false;
  if (upload.m_bLeaving && upload.m_facts.m_llBytes == 0) return;
  if (upload.m_facts.m_nResult == RESULT_OK) upload.m_facts.m_nResult = result;
  upload.m_facts.m_llMilliseconds = System().SteadyMilliseconds() - upload.m_llBegan;
  Tell(&ITransNet::OnUploaded, upload.m_facts);
}

// Of a file that waited with others, while the next one may have begun.
void CTransClient::TellGrouped(const SUploadReport& report, int result) {
  const SUploadReport next = std::exchange(m_pState->m_upload, report);
  EndUpload(result);
  m_pState->m_upload = next;
}

void CTransClient::TellCutOff() {
  for (const CConfirmGroup::SFile& file : m_pState->m_group.Clear()) {
    TellGrouped(file.m_report, ERROR_CODE_STOP_SERVICE);
  }
  EndUpload(ERROR_CODE_STOP_SERVICE);
}
