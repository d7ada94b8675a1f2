#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "net/AddressRange.h"
#include "net/LinkLimits.h"
#include "programs/OldLogs.h"
#include "programs/kqft-server/Verify.h"

/// What the command line and the configuration file of kqft-server say.
struct SServerOptions {
  std::string m_strDirectory;     ///< holds the projects
  std::string m_strLogDirectory;  ///< "" when none was given
  std::string m_strSuffix = ".kqsln";
  std::string m_strListenAddress = "0.0.0.0";
  int m_nPort = 9999;                       ///< 0: any free one
  std::vector<CAddressRange> m_vecAllowed;  ///< who may connect; empty: everyone
  SLinkLimits m_limits;
  std::string m_strAccessLog;        ///< "": none; "-": the output stream
  std::string m_strStatusDirectory;  ///< "": no status files
  int m_nStatusSeconds = 5;          ///< between two of them
  std::int64_t m_llMinFree = 0;      ///< bytes that uploads leave free; 0: none
  int m_nLogDays = kUsualLogDays;
  bool m_bNoConfine = false;
  bool m_bNoDelete = false;
  bool m_bShared = false;  ///< other servers use the directory as well
  bool m_bDurable = true;
  SVerifyOptions m_verify;
};

/// Reads them. A wrong use, help and version are dealt with here: the text is
/// printed.
/// @return true to go on; false to end with `status`.
bool ParseServerOptions(int argc, char** argv, SServerOptions& options, int& status);
