// Project queries: what a caller asks the server, and the state of a
// transfer.
//
// Each query sends one request on the link that stands and waits for its
// answer; the answer's text is handed over as it came.

#include "client/ClientState.h"
#include "client/KQFileTransServiceClient.h"
#include "platform/KQEvent.h"
#include "platform/ThreadLock.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"

namespace {

constexpr int kDirectoryWaitMs = 5000;
constexpr int kListWaitMs = 30000;
constexpr int kDeleteWaitMs = 60000;

const std::string kLogPrefix = "CKQFileTransServiceClient::";

}  // namespace

int CKQFileTransServiceClient::GetPrjDir(std::string& strPrjDir) {
  strPrjDir.clear();
  if (m_bPrjDirKnown) {  // never true; the short way is kept on purpose
    strPrjDir = GuardedCopy(m_strServerPrjDir);
    WriteLog(kLogPrefix + "GetPrjDir RESULT_OK strPrjDir = " + strPrjDir + " \n");
    return RESULT_OK;
  }
  const int result = Ask(NET_CTS_GETPRJDIR, "", kDirectoryWaitMs);
  if (result == ERROR_CODE_SENDERROR) {
    WriteLog(kLogPrefix + "GetPrjDir return ERROR_CODE_SENDERROR\n");
  } else if (result == ERROR_CODE_TIMEOUT) {
    WriteLog(kLogPrefix + "GetPrjDir return ERROR_CODE_TIMEOUT\n");
  } else {
    strPrjDir = GuardedCopy(m_strServerPrjDir);
    WriteLog(kLogPrefix + "GetPrjDir RESULT_OK end strPrjDir = " + strPrjDir + " \n");
  }
  return result;
}

int CKQFileTransServiceClient::GetServerPrjList(std::string& strList) {
  ClearPrjList();
  const int result = Ask(NET_CTS_GETPRJLIST, "", kListWaitMs);
  if (result == ERROR_CODE_SENDERROR) {
    WriteLog(kLogPrefix + "GetServerPrjList ERROR_CODE_SENDERROR \n");
  } else if (result == ERROR_CODE_TIMEOUT) {
    WriteLog(kLogPrefix + "GetServerPrjList ERROR_CODE_TIMEOUT \n");
  } else {
    strList = GuardedCopy(m_strPrjList);
    WriteLog(kLogPrefix + "GetServerPrjList end\n");
  }
  return result;
}

int CKQFileTransServiceClient::GetServerPrjFileList(const std::string& strPrj,
                                                    std::string& strList) {
  ClearPrjList();
  const int result = Ask(NET_CTS_GETPRJFILELIST, strPrj, kListWaitMs);
  if (result == RESULT_OK) strList = GuardedCopy(m_strPrjList);
  return result;
}

int CKQFileTransServiceClient::DeleteServerPrj(const std::string& strPrj) {
  ClearPrjList();
  m_nDeleteResult = 0;
  m_pState->m_bDeleteRefused = false;
  const int result = Ask(NET_CTS_DELETEPRJ, strPrj, kDeleteWaitMs);
  return result == RESULT_OK ? m_nDeleteResult.Load() : result;
}

bool CKQFileTransServiceClient::WasDeleteRefused() const {
  return m_pState->m_bDeleteRefused;
}

void CKQFileTransServiceClient::SetPrjDir(const std::string& strDir) {
  const CScopedLock lock(m_pLock);
  m_strPrjDir = strDir;
  if (strDir.at(strDir.size() - 1) != '\\') m_strPrjDir += '\\';
}

void CKQFileTransServiceClient::GetAllTransFileStatus(std::string& strXml) {
  Channel_Key_Value::ConverValueToXML(CopyRecords(), strXml);
}

float CKQFileTransServiceClient::GetTrans() const {
  const std::int64_t total = m_TotalTransBytes;
  if (total == 0) return 0.0F;
  return static_cast<float>(static_cast<double>(m_llTransBytes) / static_cast<double>(total));
}

bool CKQFileTransServiceClient::IsTransFinished() const {
  return m_bFinished;
}

// Sends a request and waits for its answer. Returns 1, -4 or -2.
int CKQFileTransServiceClient::Ask(int code, const std::string& body, int waitMs) {
  m_evReply->ResetKQEvent();
  if (!SendText(code, body)) return ERROR_CODE_SENDERROR;
  return !AwaitReply(waitMs) ? ERROR_CODE_TIMEOUT : RESULT_OK;
}

void CKQFileTransServiceClient::ClearPrjList() {
  const CScopedLock lock(m_pLock);
  m_strPrjList.clear();
}
