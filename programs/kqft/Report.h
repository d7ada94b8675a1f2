#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "transfer/Transfer.h"

class COutput;

/// What a put or get comes to.
struct STransferReport {
  std::string m_strCommand;  ///< "put" or "get"
  std::string m_strProject;  ///< "" when there are several
  std::vector<STransferItem> m_vecItems;
  std::int64_t m_llMoved = 0;   ///< bytes of file data that crossed the network
  std::size_t m_nProblems = 0;  ///< reported already, beside those of the items
  std::chrono::steady_clock::time_point m_started = std::chrono::steady_clock::now();
};

/// Reports every file that fell short, and the sum.
/// @return the exit status that the program deserves.
int ReportTransfer(COutput& output, const STransferReport& report);

/// Says what would be moved, without moving it.
/// @param bytes how much of each item would be
int ReportPlan(COutput& output, const STransferReport& report,
               const std::vector<std::int64_t>& bytes);
