#pragma once

#include <string>
#include <vector>

/// What --verify is told.
struct SVerifyOptions {
  bool m_bVerify = false;
  bool m_bAll = false;
  bool m_bJson = false;
  bool m_bNote = false;
  std::vector<std::string> m_vecProjects;  ///< none: all
};

/// Checks projects against their inventories, on this machine's disk. Needs
/// no server, and disturbs none that runs.
/// @return the exit status: done only when every file of every project is
///         the same
int VerifyProjects(const std::string& directory, const SVerifyOptions& options);
