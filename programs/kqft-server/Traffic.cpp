// Links, transfers and bytes of a running server.

#include "programs/kqft-server/Traffic.h"

void CTraffic::Begin(const STransferFacts& link) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_mapLinks[{link.m_nIP, link.m_nPort}] = {link, {}, {}};
}

std::vector<CTraffic::SLink> CTraffic::EndAll() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<SLink> links;
  for (auto& [key, link] : m_mapLinks) links.push_back(std::move(link));
  m_mapLinks.clear();
  return links;
}

SLinkTotals CTraffic::End(const STransferFacts& link) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  auto node = m_mapLinks.extract({link.m_nIP, link.m_nPort});
  return node.empty() ? SLinkTotals() : node.mapped().m_totals;
}

// A download may notice only after its link that this has ended.
void CTraffic::Move(const STransferFacts& file, bool up, bool ended) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  const auto found = m_mapLinks.find({file.m_nIP, file.m_nPort});
  if (found == m_mapLinks.end()) return;
  SLink& link = found->second;
  const std::pair<bool, std::string> name(up, file.m_strPath);
  STransferFacts& known = link.m_mapRunning[name];
  m_llBytes += file.m_llBytes - known.m_llBytes;
  known = file;
  if (!ended) return;
  link.m_mapRunning.erase(name);
  SLinkTotals& totals = link.m_totals;
  (up ? totals.m_llFilesUp : totals.m_llFilesDown) += 1;
  (up ? totals.m_llBytesUp : totals.m_llBytesDown) += file.m_llBytes;
}

CTraffic::SState CTraffic::State() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  SState state;
  state.m_nLinks = m_mapLinks.size();
  for (const auto& [key, link] : m_mapLinks) state.m_nTransfers += link.m_mapRunning.size();
  state.m_llBytes = m_llBytes;
  return state;
}
