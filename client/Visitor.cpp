// Visitor: comes, judges and leaves with regard to what a session costs.
//
// A server that stored data of an address finishes that address's old link
// before it serves the new one, and waits 5 s for a write that may still run.

#include "client/KQFileTransServiceVisitor.h"

#include <algorithm>
#include <vector>

#include "platform/KQEvent.h"
#include "platform/KQPlatForm.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"

namespace {

constexpr int kQuestionWaitMs = 30000;
constexpr int kLateAnswersMs = 1000;
constexpr int kMomentMs = 10;
constexpr int kSizeWaitMs = 30000;
constexpr int kEndWaitMs = 5000;

// No project has this name; asking for its files costs the server nothing.
const std::string kNoSuchProject = "no-such-project";

}  // namespace

CKQFileTransServiceVisitor::~CKQFileTransServiceVisitor() {
  Stop();
}

int CKQFileTransServiceVisitor::ConnectAndWait(const std::string& ip, int port) {
  return Connect(ip, port) ? WaitUntilServed() : ERROR_CODE_CLIENT_CONNECT;
}

int CKQFileTransServiceVisitor::WaitUntilServed(int patienceMs) {
  return WaitUntilAnswered(NET_CTS_GETPRJFILELIST, kNoSuchProject, patienceMs);
}

// A repeated question goes out on the same link: a new one would start the
// server's wait again. The pause lets the answers to the earlier ones pass by.
int CKQFileTransServiceVisitor::WaitUntilAnswered(int code, const std::string& body,
                                                  int patienceMs) {
  for (int left = patienceMs; left > 0; left -= kQuestionWaitMs) {
    m_evReply->ResetKQEvent();
    const bool sent = SendMessage(code, body.data(), static_cast<int>(body.size()));
    const bool silent = sent && m_evReply->Wait(std::min(left, kQuestionWaitMs)) == kWaitTimeout;
    if (!sent || !IsConnect()) return ERROR_CODE_CLIENT_CONNECT;
    if (silent) continue;
    if (left < patienceMs) CKQPlatForm::KQSleep(kLateAnswersMs);
    m_evFileEnd->SetKQEvent();  // no end of a file is outstanding on this link
    return RESULT_OK;
  }
  return ERROR_CODE_TIMEOUT;
}

int CKQFileTransServiceVisitor::WaitForEnd() {
  while (!IsTransFinished()) CKQPlatForm::KQSleep(kMomentMs);
  std::string xml;
  GetAllTransFileStatus(xml);
  std::vector<Channel_Key_Value> records;
  Channel_Key_Value::ConvertXMLToValue(xml, records);
  const auto failed =
      std::find_if(records.begin(), records.end(),
                   [](const Channel_Key_Value& rec) { return rec.m_nStatus != RESULT_OK; });
  if (failed != records.end()) return failed->m_nStatus;
  return IsConnect() ? RESULT_OK : ERROR_CODE_CLIENT_CONNECT;
}

int CKQFileTransServiceVisitor::AskSize(const std::string& name, std::int64_t& size) {
  std::string body;
  AddName(body, name);
  m_evReply->ResetKQEvent();
  if (!SendMessage(NET_CTS_REQUEST_SERVERFILESIZE, body.data(), static_cast<int>(body.size()))) {
    return ERROR_CODE_SENDERROR;
  }
  if (m_evReply->Wait(kSizeWaitMs) == kWaitTimeout) return ERROR_CODE_TIMEOUT;
  const std::int64_t told = m_TotalTransBytes;
  if (told < 0) return ERROR_CODE_WAIT_FILESIZE;
  size = told;
  return RESULT_OK;
}

// Writing to an impossible position is how a client tells the session that no
// write of its is under way; only then does the server let go at once. An
// event that is not set tells of an answer that did not come: there is no
// waiting for more of them.
void CKQFileTransServiceVisitor::Leave(const std::string& name) {
  const bool answered = m_evReply->Wait(0) != kWaitTimeout && m_evFileEnd->Wait(0) != kWaitTimeout;
  if (answered && IsConnect() && PrepareTransFile(name, false) == RESULT_OK) {
    SendData(kLeavingPosition, "x", 1);
    m_evFileEnd->ResetKQEvent();
    if (SendMessage(NET_CTS_TRANSFILEDATA_END, nullptr, 0)) m_evFileEnd->Wait(kEndWaitMs);
  }
  Stop();
}
