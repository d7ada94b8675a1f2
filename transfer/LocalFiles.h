#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/SharedWord.h"
#include "transfer/FileFacts.h"
#include "transfer/Filter.h"
#include "transfer/TransferObserver.h"

/// A file of this machine that is to be sent.
struct SLocalFile {
  std::string m_strPath;                     ///< how to open it
  std::vector<std::string> m_vecComponents;  ///< its place below the project
  SFileFacts m_facts;
  std::string m_strWhyNot;  ///< "" when it can be sent
};

/// What a walk found.
struct SLocalFiles {
  std::vector<SLocalFile> m_vecFiles;  ///< in the order of their names
  std::vector<SLeftOut> m_vecLeftOut;
  std::size_t m_nFiltered = 0;                 ///< files, and directories that were not gone into
  const CSharedWord<bool>* m_pStop = nullptr;  ///< not owned; once set, the walk ends early
};

/// Adds a file, or every file below a directory. Links to files count as the
/// files; links to directories are skipped, since they may lead in circles.
void CollectFiles(const std::string& path, const CFilter& filter, SLocalFiles& found);

/// The same for some files and directories below a directory, by their names
/// there. One that is missing is a problem.
void CollectNamedFiles(const std::string& directory, const std::vector<std::string>& names,
                       const CFilter& filter, SLocalFiles& found);

/// The place of a file below the project, "/" between its parts.
std::string PathBelow(const SLocalFile& file);
