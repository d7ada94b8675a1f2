#pragma once

#include <string>
#include <vector>

#include "programs/OldLogs.h"
#include "transfer/ProjectClient.h"

/// What the command line, the environment and the configuration file say.
struct SOptions {
  SServerPlace m_place;
  bool m_bQuiet = false;
  bool m_bJson = false;
  int m_nRetries = 3;
  int m_nRetrySeconds = 0;
  int m_nLogDays = kUsualLogDays;

  std::string m_strCommand;             ///< one of the table of commands
  std::vector<std::string> m_vecPaths;  ///< put: PATH...; get: FILE...
  std::string m_strProject;             ///< of put the --project
  std::string m_strInto = ".";          ///< get
  bool m_bDryRun = false;               ///< put, get
  bool m_bNoInventory = false;          ///< put, get
  bool m_bChecksum = false;             ///< put, get
  bool m_bWhole = false;                ///< put
  bool m_bOverwrite = false;            ///< get
  bool m_bTakeOver = false;             ///< put
  bool m_bLong = false;                 ///< ls, files
  CFilter m_filter;                     ///< put, get, verify
  std::vector<std::string> m_vecNames;  ///< put, get: of --files-from
  bool m_bNames = false;                ///< put, get: that was given
  bool m_bWatch = false;                ///< put
  int m_nSettleSeconds = 10;            ///< put
  std::string m_strBelow;               ///< ls: PROJECT or PROJECT/DIRECTORY
  std::string m_strLocal;               ///< verify
  bool m_bYes = false;                  ///< rm
};
