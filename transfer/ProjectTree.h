#pragma once

#include <string>
#include <vector>

#include "transfer/ProjectClient.h"
#include "transfer/ServerInventory.h"
#include "transfer/Transfer.h"

/// The files of a project at the server, as far as it lets them be known.
struct SProjectTree {
  std::vector<SProjectFile> m_vecFiles;  ///< by their names; none of our own
  std::size_t m_nLeftOut = 0;            ///< what could not be looked into; the observer was told
  std::string m_strMayHide;              ///< what cannot be seen, in words; "" for nothing
};

/// Those of the files that a filter picks.
std::vector<SProjectFile> PickFiles(const CFilter& filter, const std::vector<SProjectFile>& files);

/// Puts together what the inventory and the list of a project tell. The list
/// names files of three levels; without an inventory the lists of directories
/// are asked for, too, as long as they name something new.
///
/// Directories that are hidden or read-only are listed as files: an empty one
/// that the inventory does not know, and whose own list names something, is
/// one of them, and its files are there in its place.
///
/// @param directory of all projects, as the server spells it
/// @param inventory that was read, or not, which counts as none
/// @return 1 also when no such project is there; else why its list could not
///         be had
/// Blocks: for a question a directory, and one for each empty file that no
///         inventory knows. A cancelled one ends soon, with what it has.
int AskProjectTree(const STransferTools& tools, const std::string& directory,
                   const std::string& project, const CServerInventory& inventory,
                   SProjectTree& tree);
