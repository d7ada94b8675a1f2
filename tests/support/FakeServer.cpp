// A scripted data server on the network layer.

#include "support/FakeServer.h"

#include <algorithm>
#include <chrono>

#include "net/NetWorkPackHead.h"
#include "protocol/MessageCodes.h"

CFakeServer::CFakeServer() {
  Answer(NET_CTS_PREPARETRAN_FILE, Int32(1) + Int64(0));
  Answer(NET_CTS_TRANSFILEDATA_END, "");
  Answer(NET_CTS_TRANS_STOP, "");
  Answer(NET_CTS_PREPARETRANS_FILE, Int32(1));
  for (int code = NET_CTS_GETLOSTINFO; code <= NET_CTS_GETPRJFILELIST; ++code) {
    Answer(code, Int32(1));
  }
  m_manager.SetLocalAddress("127.0.0.1");
  m_manager.Init(this, 0, 100);
}

void CFakeServer::On(int code, Plan plan) {
  const std::lock_guard guard(m_mutex);
  m_mapPlans[code] = std::move(plan);
}

void CFakeServer::Answer(int code, const std::string& body) {
  On(code, [this, code, body](const std::string&) { Send(code, body); });
}

void CFakeServer::Send(int code, const std::string& body) {
  CNetWorkPackHead head;
  head.SetCode(static_cast<unsigned>(code));
  head.SetBodyLength(static_cast<unsigned>(body.size()));
  std::string packet(kPackHeadBytes, '\0');
  head.CopyTo(packet.data());
  packet += body;
  WaitFor(NET_COMMAND_CONNECT);
  std::unique_lock lock(m_mutex);
  const unsigned int ip = m_nIP;
  const int port = m_nPort;
  lock.unlock();
  m_manager.SendText(ip, port, packet.data(), static_cast<int>(packet.size()));
}

void CFakeServer::Drop() {
  WaitFor(NET_COMMAND_CONNECT);
  m_manager.CloseAllConnect();
}

std::vector<CFakeServer::Packet> CFakeServer::Packets() {
  const std::lock_guard guard(m_mutex);
  return m_vecPackets;
}

std::vector<std::string> CFakeServer::Bodies(int code) {
  std::vector<std::string> bodies;
  for (Packet& packet : Packets()) {
    if (packet.first == code) bodies.push_back(std::move(packet.second));
  }
  return bodies;
}

bool CFakeServer::WaitFor(int code, std::size_t times) {
  const auto arrived = [&] {
    return static_cast<std::size_t>(
               std::count_if(m_vecPackets.begin(), m_vecPackets.end(),
                             [&](const Packet& packet) { return packet.first == code; })) >= times;
  };
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, std::chrono::seconds(20), arrived);
}

bool CFakeServer::DealNetMsg(unsigned int, int, int code, int bodyLen, const char* body, int) {
  const std::string text(bodyLen > 0 ? body : "", static_cast<std::size_t>(bodyLen));
  Plan plan;
  {
    const std::lock_guard guard(m_mutex);
    m_vecPackets.emplace_back(code, text);
    plan = m_mapPlans[code];
    m_changed.notify_all();
  }
  if (plan) plan(text);
  return true;
}

CNetBuffer* CFakeServer::CreateNetBuffer(unsigned int ip, int port, int, int) {
  const std::lock_guard guard(m_mutex);
  CNetBuffer& parser = m_parsers.emplace_back(0, 0);
  parser.m_nLinkIP = m_nIP = ip;
  parser.m_nLinkPort = m_nPort = port;
  parser.m_pOwner = this;
  return &parser;
}
