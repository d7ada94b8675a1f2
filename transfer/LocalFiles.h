#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "transfer/TransferObserver.h"

/// A file of this machine that is to be sent.
struct SLocalFile {
  std::string m_strPath;                     ///< how to open it
  std::vector<std::string> m_vecComponents;  ///< its place below the project
  std::int64_t m_llSize = 0;
  std::string m_strWhyNot;  ///< "" when it can be sent
};

/// What a walk found.
struct SLocalFiles {
  std::vector<SLocalFile> m_vecFiles;  ///< in the order of their names
  std::vector<SLeftOut> m_vecLeftOut;
};

/// Adds a file, or every file below a directory. Links to files count as the
/// files; links to directories are skipped, since they may lead in circles.
void CollectFiles(const std::string& path, SLocalFiles& found);
