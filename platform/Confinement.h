#pragma once

#include <string>

#include "KQFileTransServiceExport.h"

/// What a confined process may still do.
struct SConfinement {
  std::string m_strDataDirectory;     ///< read, write, make and remove below it; "": none
  std::string m_strLogDirectory;      ///< read, append and make files below it; "": none
  std::string m_strMoreLogDirectory;  ///< the same there; "": none
  bool m_bRemoveLogs = false;         ///< list and remove files in the log directory instead
  bool m_bRemoveDirectories = true;   ///< in the data directory; files always
  int m_nListenPort = 0;              ///< the one port that it may bind to
  bool m_bAbstractSockets = false;    ///< reach local sockets without a file
};

/// Takes away from the process, for good, every other way to open, make,
/// change or remove files, to connect out and to signal other processes, as
/// far as the kernel knows how to: Linux by Landlock. What is open stays
/// usable; the existence, size and times of files anywhere can still be asked
/// for. Directories must exist; one that is replaced later is out of reach.
///
/// Symbolic links are followed by where they lead: one that leaves the two
/// directories leads nowhere.
///
/// @return "" when it is done, else why it is not; nothing is certain then,
///         and the process should end.
/// Threads: before any other thread is started; those it misses stay free.
KQFT_API std::string ConfineProcess(const SConfinement& confinement);
