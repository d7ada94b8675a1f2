// A scripted data server on the network layer.

#include "support/FakeServer.h"

#include "protocol/MessageCodes.h"

CRecordingServer::CRecordingServer(int capacity) {
  m_manager.SetLocalAddress("127.0.0.1");
  EXPECT_TRUE(m_manager.Init(this, 0, capacity));
}

bool CRecordingServer::Send(int code, const std::string& body) {
  return SendTogether(MakePacket(code, body));
}

bool CRecordingServer::SendTogether(const std::string& packets) {
  WaitFor(NET_COMMAND_CONNECT);
  return m_manager.SendText(m_nIP, m_nPort, packets.data(), static_cast<int>(packets.size()));
}

void CRecordingServer::Drop() {
  WaitFor(NET_COMMAND_CONNECT);
  m_manager.CloseAllConnect();
}

CFakeServer::CFakeServer() {
  for (const SMessage& message : kMessages) {
    if (message.m_bAnswered) Answer(message.m_nCode, Int32(1));
  }
  Answer(NET_CTS_PREPARETRAN_FILE, Int32(1) + Int64(0));
  Answer(NET_CTS_TRANS_STOP, "");
}

void CFakeServer::Answer(int code, const std::string& body) {
  On(code, [this, code, body](const std::string&) { Send(code, body); });
}
