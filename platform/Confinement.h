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
/// far as the kernel knows how to: Linux by Landlock. Windows has nothing of
/// the kind: there the library itself keeps to the directories, by where names
/// really lead, and the process gives up its privileges and may start no other;
/// a thread that removes logs stays as it is. What is open stays
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

/// What that is worth, in the words of a ready line: "confined" where the
/// system sees to it, "names checked" where the library does.
KQFT_API const char* ConfinementWord();
