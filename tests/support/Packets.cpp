// Packets made, found in a stream, and written down.

#include "support/Packets.h"

#include <algorithm>

#include "net/NetWorkPackHead.h"
#include "support/TestSystem.h"

std::string Int32(std::int32_t value) {
  std::string bytes(4, '\0');
  WriteInt32(bytes.data(), value);
  return bytes;
}

std::string Int64(std::int64_t value) {
  std::string bytes(8, '\0');
  WriteInt64(bytes.data(), value);
  return bytes;
}

std::string MakePacket(int code, const std::string& body) {
  CNetWorkPackHead head;
  head.SetCode(static_cast<unsigned>(code));
  head.SetBodyLength(static_cast<unsigned>(body.size()));
  std::string packet(kPackHeadBytes, '\0');
  head.CopyTo(packet.data());
  return packet + body;
}

std::vector<Channel_Key_Value> ParseRecords(const std::string& xml) {
  std::vector<Channel_Key_Value> records;
  Channel_Key_Value::ConvertXMLToValue(xml, records);
  return records;
}

std::string PrintRecords(const std::vector<Channel_Key_Value>& records) {
  std::string xml = "replaced";
  Channel_Key_Value::ConverValueToXML(records, xml);
  return xml;
}

void CPacketLog::Add(int code, const std::string& body) {
  const std::lock_guard lock(m_mutex);
  m_vecPackets.emplace_back(code, body);
}

void CPacketLog::Clear() {
  const std::lock_guard lock(m_mutex);
  m_vecPackets.clear();
}

std::vector<Packet> CPacketLog::Packets() const {
  const std::lock_guard lock(m_mutex);
  return m_vecPackets;
}

std::vector<std::string> CPacketLog::Bodies(int code) const {
  std::vector<std::string> bodies;
  for (Packet& packet : Packets()) {
    if (packet.first == code) bodies.push_back(std::move(packet.second));
  }
  return bodies;
}

std::size_t CPacketLog::Count(int code) const {
  const std::lock_guard lock(m_mutex);
  return static_cast<std::size_t>(std::count_if(m_vecPackets.begin(), m_vecPackets.end(),
                                                [&](const Packet& p) { return p.first == code; }));
}

bool CPacketLog::WaitFor(int code, std::size_t times) const {
  return WaitUntil([&] { return Count(code) >= times; });
}
