// The world of one session, written down.

#include "support/FakeTransNet.h"

#include <memory>

#include "net/IOCPBuffer.h"
#include "net/LayerThread.h"
#include "net/NetWorkPackHead.h"
#include "protocol/MessageCodes.h"
#include "protocol/TransferTypes.h"

bool CFakeTransNet::SendText(ILinkInfo*, CIOCPBuffer* buf) {
  const std::unique_ptr<CIOCPBuffer> own(buf);
  m_bHeld = true;
  if (m_bRefuseData || !WaitUntil([this] { return !m_bHold; })) return false;
  return SendText(0, 0, buf->m_pBuf, buf->m_nDataLen);
}

bool CFakeTransNet::SendText(unsigned int, int, const char* data, int len) {
  const unsigned body = static_cast<unsigned>(len - kPackHeadBytes);
  EXPECT_EQ(CNetWorkPackHead::BodyLength(data), body);
  Add(static_cast<int>(CNetWorkPackHead::Code(data)), std::string(data + kPackHeadBytes, body));
  return true;
}

bool CFakeTransNet::WaitSendRoom(int ms) {
  if (m_bRoom) return true;
  m_bHeld = true;
  System().Sleep(ms);
  return m_bRoom;
}

std::string CFakeTransNet::LastBody(int code) {
  const std::vector<std::string> bodies = Bodies(code);
  return bodies.empty() ? "" : bodies.back();
}

std::vector<int> CFakeTransNet::Codes() {
  std::vector<int> codes;
  for (const auto& [code, body] : Packets()) {
    if (code != NET_STC_TRANSFILEDATA) codes.push_back(code);
  }
  return codes;
}

void CSessionTest::Hand(CTransClient& session, int code, const std::string& body) {
  const std::vector<char> exact(body.begin(), body.end());  // nothing to read behind its end
  session.DealNetMsg(0, 0, code, static_cast<int>(exact.size()), exact.data(), 0);
}

std::string_view CSessionTest::HandFirst(CTransClient& session, std::string_view arrived) {
  const char* const packet = arrived.data();
  const unsigned bytes = CNetWorkPackHead::BodyLength(packet);
  arrived.remove_prefix(kPackHeadBytes + bytes);
  LayerThread().m_strArrived = arrived;
  LayerThread().m_bMoreToCome = !arrived.empty();
  session.DealNetMsg(0, 0, static_cast<int>(CNetWorkPackHead::Code(packet)),
                     static_cast<int>(bytes), packet + kPackHeadBytes, 0);
  LayerThread().m_strArrived = {};
  LayerThread().m_bMoreToCome = false;
  return arrived;
}

std::string CSessionTest::Ask(int code, const std::string& body) {
  Hand(m_session, code, body);
  return m_net.LastBody(code);
}

std::string CSessionTest::AskUpload(bool create, const std::string& name) {
  return Ask(NET_CTS_PREPARETRAN_FILE, std::string(1, create ? '\1' : '\0') + (m_dir / name));
}

std::string CSessionTest::AskDownload(std::int64_t position, const std::string& name) {
  return Ask(NET_CTS_PREPARETRANS_FILE, Int64(position) + (m_dir / name));
}

void CSessionTest::SendChunk(std::int64_t position, const std::string& bytes) {
  Ask(NET_CTS_TRANSFILEDATA, Int64(position) + bytes);
}

bool CSessionTest::WaitIdle() {
  return WaitUntil([this] { return m_session.m_nTransType == PROCESS_TYPE_NONE; });
}
