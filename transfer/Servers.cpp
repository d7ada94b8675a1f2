// Several servers of one storage: their order for a project is that of the
// hashes of both names, so that one server more or less moves only the projects
// that it gets or had.

#include "transfer/Servers.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "platform/TextHash.h"
#include "transfer/ProjectClient.h"

namespace {

constexpr int kHighestPort = 65535;

// The port behind the last colon; 0 when there is none.
int PortOf(const std::string& text, std::size_t colon) {
  const std::string digits = text.substr(colon + 1);
  const bool isNumber = !digits.empty() && digits.size() <= 5 &&
                        digits.find_first_not_of("0123456789") == std::string::npos;
  const int port = isNumber ? std::stoi(digits) : 0;
  return port <= kHighestPort ? port : 0;
}

std::uint64_t WeightOf(const std::string& project, const std::string& server) {
  std::uint64_t hash = TextHash(project + "\n" + server);
  // The last letters alone would leave the upper bits alone.
  hash ^= hash >> 33;
  hash *= 0xff51afd7ed558ccdU;
  return hash ^ hash >> 33;
}

}  // namespace

std::string CServers::SServer::Text() const {
  return SServerPlace{m_strHost, m_nPort, "", ""}.Text();
}

CServers::CServers(const std::string& hosts, int port) {
  if (!NamesSeveralServers(hosts)) {
    m_vecServers.push_back({hosts, port});
    return;
  }
  for (std::size_t begin = 0; begin <= hosts.size();) {
    const std::size_t end = std::min(hosts.find(',', begin), hosts.size());
    const std::string text = hosts.substr(begin, end - begin);
    begin = end + 1;
    const std::size_t colon = text.rfind(':');
    const int own = colon == std::string::npos ? 0 : PortOf(text, colon);
    SServer server{own > 0 ? text.substr(0, colon) : text, own > 0 ? own : port};
    if (!server.m_strHost.empty()) m_vecServers.push_back(std::move(server));
  }
  if (m_vecServers.empty()) m_vecServers.push_back({hosts, port});
  Sort();
}

void CServers::LookUp(
    const std::function<std::vector<std::string>(const std::string& host)>& addressesOf) {
  if (m_bLookedUp) return;
  m_bLookedUp = true;
  std::vector<SServer> servers;
  for (const SServer& named : m_vecServers) {
    const std::vector<std::string> addresses = addressesOf(named.m_strHost);
    if (addresses.size() <= 1) {
      servers.push_back(named);  // words tell of it by its name
      continue;
    }
    for (const std::string& address : addresses) servers.push_back({address, named.m_nPort});
  }
  m_vecServers = std::move(servers);
  Sort();
}

void CServers::Choose(const std::string& project) {
  if (project == m_strProject) return;
  m_strProject = project;
  Sort();
}

void CServers::Sort() {
  m_nCurrent = 0;
  const auto weight = [&](const SServer& server) {
    return std::pair(WeightOf(m_strProject, server.Text()), server.Text());
  };
  const auto isBefore = [&](const SServer& a, const SServer& b) { return weight(a) > weight(b); };
  const auto isSame = [](const SServer& a, const SServer& b) { return a.Text() == b.Text(); };
  std::sort(m_vecServers.begin(), m_vecServers.end(), isBefore);
  m_vecServers.erase(std::unique(m_vecServers.begin(), m_vecServers.end(), isSame),
                     m_vecServers.end());
}
