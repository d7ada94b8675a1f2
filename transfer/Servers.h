#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// Whether a host's text is a list.
inline bool NamesSeveralServers(const std::string& hosts) {
  return hosts.find(',') != std::string::npos;
}

/// The servers that a host's text names: "a,b:9998,c", or one name that has several
/// addresses. They serve one storage, so that any of them will do; which one comes first follows
/// from the project, such that a project meets one server while that lives, in whatever order they
/// are named and wherever it is sent from.
///
/// Threads: one thread uses it.
class CServers {
 public:
  /// @param port of those that name none
  CServers(const std::string& hosts, int port);

  /// Has a server for each address in the place of a name that stands for
  /// several; the first call alone does something.
  void LookUp(const std::function<std::vector<std::string>(const std::string& host)>& addressesOf);

  /// Puts them in the order for a project; nothing when it is the same as last.
  void Choose(const std::string& project);

  /// Goes on with the next one; behind the last comes the first.
  void Next() { m_nCurrent = (m_nCurrent + 1) % m_vecServers.size(); }

  std::size_t Count() const { return m_vecServers.size(); }
  const std::string& Host() const { return m_vecServers[m_nCurrent].m_strHost; }
  int Port() const { return m_vecServers[m_nCurrent].m_nPort; }
  std::string Text() const { return m_vecServers[m_nCurrent].Text(); }

 private:
  struct SServer {
    std::string Text() const;

    std::string m_strHost;
    int m_nPort = 0;
  };

  void Sort();

  std::vector<SServer> m_vecServers;  // at least one, each once
  bool m_bLookedUp = false;
  std::size_t m_nCurrent = 0;
  std::string m_strProject;
};
