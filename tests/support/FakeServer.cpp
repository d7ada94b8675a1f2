// A scripted data server on the network layer.

#include "support/FakeServer.h"

#include "protocol/MessageCodes.h"

CRecordingServer::CRecordingServer(int capacity) {
  m_manager.SetLocalAddress("127.0.0.1");
  EXPECT_TRUE(m_manager.Init(this, 0, capacity));
}

bool CRecordingServer::Send(int code, const std::string& body) {
  WaitFor(NET_COMMAND_CONNECT);
  const std::string packet = MakePacket(code, body);
  return m_manager.SendText(m_nIP, m_nPort, packet.data(), static_cast<int>(packet.size()));
}

void CRecordingServer::Drop() {
  WaitFor(NET_COMMAND_CONNECT);
  m_manager.CloseAllConnect();
}

CFakeServer::CFakeServer() {
  Answer(NET_CTS_PREPARETRAN_FILE, Int32(1) + Int64(0));
  Answer(NET_CTS_TRANSFILEDATA_END, "");
  Answer(NET_CTS_TRANS_STOP, "");
  Answer(NET_CTS_PREPARETRANS_FILE, Int32(1));
  for (int code = NET_CTS_GETLOSTINFO; code <= NET_CTS_GETPRJFILELIST; ++code) {
    Answer(code, Int32(1));
  }
}

void CFakeServer::Answer(int code, const std::string& body) {
  On(code, [this, code, body](const std::string&) { Send(code, body); });
}
