#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "programs/kqft-server/DiskRoom.h"
#include "programs/kqft-server/Traffic.h"

/// What the status files tell of a server at one moment.
struct SServerStatus {
  std::string m_strHost;
  std::string m_strAddress;  ///< it listens on
  int m_nPort = 0;
  std::string m_strDirectory;  ///< of the projects
  std::chrono::system_clock::time_point m_started;
  std::chrono::system_clock::time_point m_now;
  std::int64_t m_llRanMs = 0;
  int m_nEverySeconds = 0;
  bool m_bEnded = false;

  CTraffic::SSnapshot m_traffic;
  STrafficCounts m_before;               ///< until the day began
  std::string m_strDay;                  ///< "2026-11-22", local
  std::vector<std::int64_t> m_vecRates;  ///< bytes a second of each link
  std::int64_t m_llRateUp = 0;
  std::int64_t m_llRateDown = 0;
  std::int64_t m_llNowMs = 0;  ///< as a link's m_llSince

  SDiskRoom m_room;
  std::string m_strProbe;  ///< "": the directory can be used; else why not
};

/// One JSON object on a line; docs/json.md has its members.
std::string StatusJson(const SServerStatus& status);

/// The text format of Prometheus. No metric tells clients apart.
std::string StatusMetrics(const SServerStatus& status);
