#include "support/RecordingSink.h"

#include "net/LinkEvents.h"

void CRecordingSink::On(int code, Plan plan) {
  const std::lock_guard lock(m_mutex);
  m_mapPlans[code] = std::move(plan);
}

bool CRecordingSink::DealNetMsg(unsigned int ip, int port, int code, int bodyLen, const char* body,
                                int) {
  if (code != NET_COMMAND_DISCONNECT) {
    m_nIP = ip;
    m_nPort = port;
  }
  const std::string text(bodyLen > 0 ? body : "", static_cast<std::size_t>(bodyLen));
  Add(code, text);
  std::unique_lock lock(m_mutex);
  const Plan plan = m_mapPlans[code];
  lock.unlock();
  if (plan) plan(text);
  return true;
}

CNetBuffer* CRecordingSink::CreateNetBuffer(unsigned int ip, int port, int, int) {
  const std::lock_guard lock(m_mutex);
  if (m_bRefuse) return nullptr;
  CNetBuffer* parser = m_pSharedParser;
  if (parser == nullptr) parser = &m_parsers.emplace_back(0, 0);
  parser->m_nLinkIP = ip;
  parser->m_nLinkPort = port;
  parser->m_pOwner = this;
  parser->ClearData();
  return parser;
}

bool CRecordingSink::ReleaseIOCPBuffer(CIOCPBuffer* buf) {
  EXPECT_NE(std::this_thread::get_id(), m_creator);
  const std::lock_guard lock(m_mutex);
  EXPECT_EQ(m_mapReleased.count(buf), 0U);
  m_mapReleased[buf].reset(buf);
  return true;
}

std::size_t CRecordingSink::Released() const {
  const std::lock_guard lock(m_mutex);
  return m_mapReleased.size();
}
