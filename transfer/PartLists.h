#pragma once

#include <map>
#include <set>
#include <string>

#include "transfer/TransferItem.h"

/// Which parts lie beside the places of files that are to be fetched, by one
/// look at each directory.
class CPartLists {
 public:
  /// False when nothing can be in the item's place: its directory is not there.
  bool HasDirectory(const STransferItem& item) { return In(item).m_bThere; }

  /// Whether there may be a part of this version.
  bool MayHave(const STransferItem& item);

  /// Removes parts of other versions.
  void RemoveStale(const STransferItem& item);

 private:
  struct SList {
    bool m_bThere = true;
    bool m_bKnown = true;  // what it holds
    std::set<std::string> m_parts;
  };
  const SList& In(const STransferItem& item);

  std::map<std::string, SList> m_lists;  // by directory
};
