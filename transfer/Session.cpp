// Session: the library's client with the care that a person expects.

#include "transfer/Session.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <utility>

#include "net/IOCPBuffer.h"
#include "net/LinkInfo.h"
#include "net/NetWorkManageEx.h"
#include "net/Pacing.h"
#include "platform/KQEvent.h"
#include "platform/KQFile.h"
#include "platform/System.h"
#include "platform/ThreadLock.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "transfer/SessionWaits.h"
#include "transfer/Sizes.h"
#include "transfer/WaitNotice.h"

namespace {

constexpr std::chrono::milliseconds kConfirmation(200);
constexpr int kListWaitMs = 30000;

// The second of three fields is not empty.
bool NamesRanges(const std::string& text) {
  const std::size_t bar = text.find('|');
  return bar != std::string::npos && bar + 1 < text.size() && text[bar + 1] != '|';
}

}  // namespace

/// A wait for an answer that may take the server long.
class CSession::CAnswerWait {
 public:
  CAnswerWait(CSession& session, const std::string& text)
      : m_notice(
            session.m_observer, text, session.TimeoutMs(0), [&session] { return session.Heard(); },
            [&session] {
              session.m_strNoLink = session.SilenceText();
              session.m_pNetWork->CloseAllConnect();
            }) {}

 private:
  const CWaitNotice m_notice;
};

CSession::CSession(const SServerPlace& place, ITransferObserver& observer)
    : m_place(place), m_servers(place.m_strHost, place.m_nPort), m_observer(observer) {
  m_servers.Choose(place.m_strProject);
  m_pNetWork->SetLocalAddress(place.m_strBindAddress);
  m_pNetWork->JudgeFirstBytes();
  std::vector<SBandwidthStep> steps;
  if (CBandwidth::Parse(place.m_strBandwidth, steps).empty()) {
    m_pBandwidth = std::make_unique<CBandwidth>(std::move(steps));
    SetRateLimit(m_pBandwidth.get());
  }
  SetReadHook([this](std::size_t record, std::int64_t position, const char* data, int bytes) {
    OnFileRead(record, position, data, bytes);
  });
}

// The worker uses members of this class.
CSession::~CSession() {
  Abort();
}

// Asks once; not at all what the server has passed over before.
int CSession::Request(int code, const std::function<int()>& request) {
  {
    const std::lock_guard guard(m_mutex);
    if (m_setUnknown.count(code) > 0) return kRequestUnknown;
  }
  const int result = Checked(request());
  switch (result) {
    case ERROR_CODE_TIMEOUT:
    case ERROR_CODE_WAIT_SERVERRESPOND:
    case ERROR_CODE_WAIT_FILESIZE:
    case ERROR_CODE_GETLOSTINFO:
      return IsPassedOver(code) ? kRequestUnknown : result;
    default:
      return result;
  }
}

int CSession::AskDirectory(std::string& directory) {
  if (m_bKnowsDirectory && IsConnect()) {
    const CScopedLock lock(m_pLock);
    directory = m_strServerPrjDir;
    return RESULT_OK;
  }
  return Request(NET_CTS_GETPRJDIR, [&] { return GetPrjDir(directory); });
}

int CSession::AskProjects(std::vector<Channel_Key_Value>& projects) {
  const CAnswerWait wait(*this, "waiting for the list of projects");
  std::string xml;
  const int result = Request(NET_CTS_GETPRJLIST, [&] { return GetServerPrjList(xml); });
  if (result == RESULT_OK) Channel_Key_Value::ConvertXMLToValue(xml, projects);
  return result;
}

void CSession::AskProjectsLater() {
  {
    const std::lock_guard guard(m_mutex);
    m_bListed = false;
  }
  SendMessage(NET_CTS_GETPRJLIST, nullptr, 0);
}

// Who has answered what was sent behind the question does not know it.
int CSession::AwaitProjects(std::vector<Channel_Key_Value>& projects) {
  const CAnswerWait wait(*this, "waiting for the list of projects");
  std::unique_lock lock(m_mutex);
  const auto isOver = [&] { return m_bListed || m_stored.empty() || !IsConnect(); };
  AwaitChange(lock, kListWaitMs, isOver);
  if (!m_bListed) return ERROR_CODE_TIMEOUT;
  Channel_Key_Value::ConvertXMLToValue(m_strListed, projects);
  return RESULT_OK;
}

void CSession::KeepProjects(int length, const char* body) {
  const std::lock_guard guard(m_mutex);
  m_strListed.assign(length > 0 ? body : "", static_cast<std::size_t>(length));
  m_bListed = true;
  m_changed.notify_all();
}

int CSession::AskFiles(const std::string& project, std::vector<Channel_Key_Value>& files) {
  const CAnswerWait wait(*this, "waiting for the list of files");
  std::string xml;
  const int result =
      Request(NET_CTS_GETPRJFILELIST, [&] { return GetServerPrjFileList(project, xml); });
  if (result == RESULT_OK) Channel_Key_Value::ConvertXMLToValue(xml, files);
  return result;
}

int CSession::Delete(const std::string& project) {
  const CAnswerWait wait(*this, "waiting for the server to delete the project");
  const int result = Request(NET_CTS_DELETEPRJ, [&] { return DeleteServerPrj(project); });
  return result == RESULT_OK && WasDeleteRefused() ? kDeleteRefused : result;
}

int CSession::ReportFilled(int index, const FILEDATAPOS& range) {
  const std::string body = EncodeBody(SChangedRange{index, range.llPos + range.llLen, 0});
  return Request(NET_CTS_CHANGELOSTINFO, [&] {
    const int result =
        SendAndWaitPre(NET_CTS_CHANGELOSTINFO, body.data(), static_cast<int>(body.size()));
    return result == ERROR_CODE_WAIT_SERVERRESPOND ? result : static_cast<int>(RESULT_OK);
  });
}

int CSession::StartUpload(const std::vector<Channel_Key_Value>& records,
                          std::deque<SLostAnswer> answers, std::vector<CFileDigest> digests) {
  if (SLostInfo ignored; m_bJustRead) AskLostInfo(records.front().m_strName, ignored);
  AwaitAllStored();
  {
    const std::lock_guard guard(m_mutex);
    m_answers = std::move(answers);
    m_vecArrived.clear();
  }
  m_vecSent.clear();
  for (const Channel_Key_Value& record : records) m_vecSent.push_back(record.m_strPath);
  m_vecDigests = m_bDigests ? std::move(digests) : std::vector<CFileDigest>();
  const int result = UploadRecords(records);
  m_bStarted = result == RESULT_OK;
  return result;
}

int CSession::StartDownload(const std::vector<Channel_Key_Value>& records,
                            const std::string& directory, std::vector<CFileDigest> digests,
                            TargetOpener opener) {
  m_vecDigests.clear();
  m_openTarget = std::move(opener);
  {
    const std::lock_guard guard(m_mutex);
    m_vecArrived = std::move(digests);
  }
  SetPrjDir(directory);
  const int result = DownloadRecords(records);
  m_bStarted = result == RESULT_OK;
  // The library stays "downloading" when the disk is too small.
  if (result != RESULT_OK) m_nTransState = 0;
  return result;
}

CSession::STargetFile CSession::OpenTarget(std::size_t record, const std::string&) {
  return m_openTarget(record);
}

// Others than the worker set the event too: then it says nothing.
void CSession::WaitWhileMoving() {
  if (m_evTransEnd->Wait(kMomentMs) == kWaitTimeout || !IsMoving()) return;
  System().Sleep(kMomentMs);
}

void CSession::StopMoving() {
  bool gently = false;
  {
    const std::lock_guard guard(m_mutex);
    gently = !m_bLostRanges;
    m_bStopping = true;
  }
  if (!gently || !StopConfirmed()) Abort();
}

// A server that had just sent the end of a file does not confirm the stop.
// Once the worker has ended, a confirmation that is not here yet is none.
bool CSession::StopConfirmed() {
  std::future<int> stopped = std::async(std::launch::async, [this] { return StopTrans(); });
  while (stopped.wait_for(kConfirmation) != std::future_status::ready) {
    if (!IsMoving()) m_evTransEnd->SetKQEvent();
  }
  return stopped.get() == RESULT_OK && !IsMoving();
}

// The network is gone before the events are set: a worker that resets one
// afterwards finds that it cannot send, and does not wait.
void CSession::Abort() {
  Stop();
  m_bStop = true;
  m_evReply->SetKQEvent();
  m_evFileEnd->SetKQEvent();
  while (IsMoving()) System().Sleep(1);
}

bool CSession::DealNetMsg(unsigned int ip, int port, int nMsgType, int nLength, const char* pData,
                          int extra) {
  if (nMsgType != NET_STC_TRANSFILEDATA) {
    const std::lock_guard guard(m_mutex);
    m_setAnswered.insert(nMsgType);
  }
  std::string lostInfo;
  if (const auto answer = DecodeBody<SLostRanges>(pData, nLength);
      nMsgType == NET_CTS_GETLOSTINFO && answer) {
    if (!TakeLostInfo(*answer, lostInfo)) return true;
    pData = lostInfo.data();
    nLength = static_cast<int>(lostInfo.size());
  }
  if (nMsgType == NET_CTS_REQUEST_SERVERFILESIZE && KeepSize(nLength, pData)) return true;
  if (KeepStored(nMsgType, nLength, pData)) return true;
  const bool reads = nMsgType == NET_STC_TRANSFILEDATA_END && IsReading();
  CKQFileBulkTransfer::DealNetMsg(ip, port, nMsgType, nLength, pData, extra);
  switch (nMsgType) {
    case NET_STC_TRANSFILEDATA:
      TakeData(nLength, pData);
      break;
    case NET_CTS_GETPRJLIST:
      KeepProjects(nLength, pData);
      break;
    case NET_STC_TRANSFILEDATA_END:
      if (reads) EndData();  // that of a transfer may have let a reading begin by now
      break;
    case NET_COMMAND_DISCONNECT:
      ReleaseWaiting();
      break;
    default:
      break;
  }
  return true;
}

// Makes the body that the worker is to go by, in the place of the server's.
// False when a stop is under way: ranges that become known now would be begun
// and stopped in the middle.
bool CSession::TakeLostInfo(SLostRanges answer, std::string& body) {
  const std::lock_guard guard(m_mutex);
  m_strLostText = answer.m_strText;
  SLostAnswer expected;
  if (!m_answers.empty()) {
    expected = std::move(m_answers.front());
    m_answers.pop_front();
    if (m_strLostText == expected.m_strSeen) {
      answer.m_strText = expected.m_strTold;
    } else if (NamesRanges(m_strLostText)) {
      answer = {ERROR_CODE_TRANS_BUSY, ""};
    }
  }
  body = EncodeBody(answer);
  if (answer.m_strText.empty()) return true;
  m_bLostRanges = !m_bStopping;
  return m_bLostRanges;
}

// Nobody need wait for answers that can no longer come.
void CSession::ReleaseWaiting() {
  m_evReply->SetKQEvent();
  m_evFileEnd->SetKQEvent();
  m_evTransEnd->SetKQEvent();
  const std::lock_guard guard(m_mutex);
  m_changed.notify_all();
}

bool CSession::ReleaseIOCPBuffer(CIOCPBuffer* p) {
  m_llSigns += 1;
  if (p != nullptr && p->m_nBufSize == kSendBufferBytes) {
    const auto piece =
        DecodeBody<SFileData>(p->m_pBuf + kPackHeadBytes, p->m_nDataLen - kPackHeadBytes);
    if (piece && piece->m_llPosition >= 0) {  // not the courteous byte
      m_llMoved += static_cast<std::int64_t>(piece->m_strData.size());
    }
  }
  return CKQFileBulkTransfer::ReleaseIOCPBuffer(p);
}

// True when a server that never answered this kind of request answers the next
// one: a slow one would be at it still.
bool CSession::IsPassedOver(int code) {
  {
    const std::lock_guard guard(m_mutex);
    if (m_setAnswered.count(code) > 0) return false;
    m_setAnswered.erase(NET_CTS_GETPRJDIR);
  }
  std::string ignored;
  GetPrjDir(ignored);
  m_evReply->ResetKQEvent();  // Leave is not to wait once more
  const std::lock_guard guard(m_mutex);
  if (m_setAnswered.count(code) > 0 || m_setAnswered.count(NET_CTS_GETPRJDIR) == 0) return false;
  m_setUnknown.insert(code);
  return true;
}

int CSession::Checked(int result) const {
  if (!IsConnect() || result == ERROR_CODE_SENDERROR) return ERROR_CODE_CLIENT_CONNECT;
  return result;
}
