#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What a status file says of a server, within bounds. Texts are UTF-8, hold
/// anything else that somebody may have put there, and are shown only escaped.

struct STransferFact {
  bool m_bUp = false;
  std::string m_strProject;  ///< "" for a file that is in none
  std::string m_strName;
  std::int64_t m_llBytes = 0;
};

struct SLinkFact {
  std::string m_strAddress;
  double m_dSeconds = 0;
  std::int64_t m_llRate = 0;
  std::vector<STransferFact> m_vecTransfers;
};

/// How often something came to such an end.
struct SEndFact {
  std::string m_strEvent;   ///< "upload"; what was refused
  std::string m_strResult;  ///< "done", "failed", "cut_off", "refused"
  std::string m_strWhy;     ///< name of a code; reason of a refusal
  std::int64_t m_llCount = 0;
  std::int64_t m_llToday = 0;
};

struct SServerFacts {
  std::string m_strHost, m_strListen, m_strVersion, m_strDirectory, m_strDay;
  bool m_bEnded = false;
  double m_dSeconds = 0;
  int m_nEverySeconds = 0;
  std::int64_t m_llFree = -1;  ///< -1: not told
  std::int64_t m_llTotal = -1;
  std::optional<std::string> m_probe;  ///< "": the project directory can be used
  std::int64_t m_llBytesUp = 0, m_llBytesDown = 0;
  std::int64_t m_llRateUp = 0, m_llRateDown = 0;
  std::vector<SEndFact> m_vecEnds;
  std::vector<SLinkFact> m_vecLinks;
  std::int64_t m_llLinks = 0;  ///< as many as the file has, also where not all are kept
};

/// Takes them from the content of a file.
/// @return "" or why it is no status
std::string ParseServerFacts(const std::string& content, SServerFacts& facts);
