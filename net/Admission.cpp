// Who may connect: what is accepted becomes a link, or is closed at once, before
// anything is set up for it.

#include <algorithm>

#include "net/Link.h"
#include "net/NetWorkCore.h"
#include "net/Sockets.h"
#include "platform/System.h"

namespace {

// Pause of the accept thread while the process has no descriptor left.
constexpr int kNoDescriptorPauseMs = 50;

// Links whose end was not delivered yet, for each place of the capacity.
constexpr std::size_t kLinksPerPlace = 4;

}  // namespace

void CNetWorkCore::AcceptLoop() {
  for (;;) {
    std::unique_ptr<IStreamSocket> socket;
    const EAcceptResult result = m_pListener->Accept(socket);
    if (result == EAcceptResult::kStopped || m_bStopping) return;
    if (result == EAcceptResult::kOutOfResources) {
      System().Sleep(kNoDescriptorPauseMs);
    } else if (const auto refusal = WhyRefused(socket->RemoteIP())) {
      if (m_settings.m_refused) {
        m_settings.m_refused(socket->RemoteIP(), socket->RemotePort(), *refusal);
      }
    } else {
      AddLink(std::move(socket));
    }
  }
}

// The rate last: who is refused anyway must not use up what others may.
std::optional<ERefusal> CNetWorkCore::WhyRefused(unsigned int ip) {
  const int mostOfAddress = m_settings.m_limits.m_nPerAddress;
  if (!IsAllowed(ip)) return ERefusal::kAddress;
  if (!HasPlace()) return ERefusal::kLinks;
  if (mostOfAddress > 0 && LinksOf(ip) >= mostOfAddress) return ERefusal::kAddressLinks;
  if (!m_newLinks.Take(System().SteadyMilliseconds())) return ERefusal::kNewLinks;
  return std::nullopt;
}

int CNetWorkCore::LinksOf(unsigned int ip) const {
  const std::lock_guard<std::mutex> guard(m_mutex);
  return static_cast<int>(std::count_if(m_links.begin(), m_links.end(), [ip](const SEntry& entry) {
    return entry.m_pLink->IP() == ip && entry.m_pLink->IsUp();
  }));
}

// A link that is down frees its place at once, but its threads not before its
// end was delivered: that must not fall behind without a bound.
bool CNetWorkCore::HasPlace() {
  if (m_nLive >= m_settings.m_nCapacity) return false;
  const std::lock_guard<std::mutex> guard(m_mutex);
  return m_links.size() < kLinksPerPlace * static_cast<std::size_t>(m_settings.m_nCapacity);
}

bool CNetWorkCore::IsAllowed(unsigned int ip) const {
  const std::vector<CAddressRange>& allowed = m_settings.m_vecAllowed;
  return allowed.empty() ||
         std::any_of(allowed.begin(), allowed.end(),
                     [ip](const CAddressRange& range) { return range.Contains(ip); });
}
