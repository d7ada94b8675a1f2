#pragma once

#include <memory>
#include <string>

#include "platform/KQFile.h"
#include "platform/SystemTypes.h"

/// A file that is open to be received, and held until it is closed: nobody else
/// receives it or cuts it meanwhile, in this process or another one, and on a
/// distributed file system on no other machine.
struct SHeldFile {
  std::shared_ptr<CFileHandle> m_pFile;         ///< null when it cannot be had
  ESystemError m_eError = ESystemError::kNone;  ///< then why; kBusy: another one receives it
  bool m_bLocked = false;   ///< false on a file system without locks: nobody is kept out
  std::string m_strHolder;  ///< of one that is received: by whom, as far as it says so
};

/// Opens it with what it holds; makes it when it is missing.
SHeldFile HoldFile(const std::string& path);
