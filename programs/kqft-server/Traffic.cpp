// Links, transfers and bytes of a running server.

#include "programs/kqft-server/Traffic.h"

#include "platform/System.h"

void CTraffic::Begin(const STransferFacts& link) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_mapLinks[{link.m_nIP, link.m_nPort}] = {link, System().SteadyMilliseconds(), {}, {}};
  ++m_counts.m_llLinks;
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
  if (ended) ++m_counts.m_mapResults[{up ? EWork::kUpload : EWork::kDownload, file.m_nResult}];
  const auto found = m_mapLinks.find({file.m_nIP, file.m_nPort});
  if (found == m_mapLinks.end()) return;
  SLink& link = found->second;
  const std::pair<bool, std::string> name(up, file.m_strPath);
  STransferFacts& known = link.m_mapRunning[name];
  (up ? m_counts.m_llBytesUp : m_counts.m_llBytesDown) += file.m_llBytes - known.m_llBytes;
  known = file;
  if (!ended) return;
  link.m_mapRunning.erase(name);
  SLinkTotals& totals = link.m_totals;
  (up ? totals.m_llFilesUp : totals.m_llFilesDown) += 1;
  (up ? totals.m_llBytesUp : totals.m_llBytesDown) += file.m_llBytes;
}

void CTraffic::Deleted(int result) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  ++m_counts.m_mapResults[{EWork::kDelete, result}];
}

void CTraffic::Refused(ERefusal refusal) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  ++m_counts.m_mapRefusals[refusal];
}

CTraffic::SSnapshot CTraffic::Snapshot() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  SSnapshot snapshot;
  snapshot.m_vecLinks.reserve(m_mapLinks.size());
  for (const auto& [key, link] : m_mapLinks) snapshot.m_vecLinks.push_back(link);
  snapshot.m_counts = m_counts;
  return snapshot;
}

CTraffic::SState CTraffic::State() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  SState state;
  state.m_nLinks = m_mapLinks.size();
  for (const auto& [key, link] : m_mapLinks) state.m_nTransfers += link.m_mapRunning.size();
  state.m_llBytes = m_counts.m_llBytesUp + m_counts.m_llBytesDown;
  return state;
}
