#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "transfer/DamageNote.h"
#include "transfer/Filter.h"
#include "transfer/PutWay.h"
#include "transfer/ServerInventory.h"

struct STransferResult;

/// The inventories of all projects that one put sends to.
class CPutInventories {
 public:
  /// @param directory of all projects, as the server spells it
  /// @param items outlives this, and stays in its place
  /// @param isPart of the projects other files are meant to be there
  CPutInventories(const STransferTools& tools, const std::string& directory,
                  const std::vector<STransferItem>& items, bool isPart);

  /// Reads the former ones, and what was noted of damage. Without it nothing
  /// is known. @return "" or why not, in words
  std::string Read();

  /// What Read is going to ask for the sizes of; nothing where that takes more
  /// than one question for it.
  std::vector<std::string> Asked() const;

  /// What is known of an item at the server; null when nothing is.
  const SInventoryEntry* Find(const STransferItem& item) const;

  /// The blocks of it that are damaged there, none for all of it; null when
  /// it is not noted.
  const std::vector<std::int64_t>* Damage(const STransferItem& item) const;

  /// How many files the projects have that the filter picks and that are not
  /// among the items.
  std::size_t CountOnlyThere(const CFilter& filter) const;

  /// Says what is going to be sent, before any of it is; nothing where nothing
  /// is. @param ways kept in view from then on
  /// @return "" or why that could not be written
  std::string WritePlanned(const PutWays& ways);

  /// Says what has been sent so far, when the last writing is long ago: so a
  /// put that is cut off need not begin anew with it.
  /// @param now also when it is not
  void WriteBetween(bool now);

  /// Says what was sent; nothing where nothing has changed.
  /// @return "" or why that could not be written
  std::string WriteComplete();

  /// Takes what is whole now from the notes of damage.
  void EndHealing(STransferResult& put);

  const std::string& LastWritten() const { return m_strLastWritten; }

 private:
  struct SProject {
    explicit SProject(const CServerInventory& server) : m_server(server) {}
    CServerInventory m_server;
    CInventory m_mine;
    CDamageNote m_note;
    bool m_bSends = false;            // some item of it
    CInventory::Files m_mapByLength;  // what a complete one has without digests
  };
  std::string Enter(const STransferItem& item, bool ended);
  std::string EnterAll(bool ended);
  std::string WriteSending();
  int WriteEnd(const std::string& name, SProject& project, bool all);
  bool IsAllDone(const std::string& name, const SProject& project) const;
  std::string Written(SProject& project, int result);

  const std::vector<STransferItem>& m_items;
  const bool m_bPart;
  std::map<std::string, SProject> m_mapProjects;
  std::string m_strRun;
  std::string m_strLastWritten;
  const PutWays* m_pWays = nullptr;  // once the planned ones are written
  std::int64_t m_llNextMs = 0;       // when WriteBetween writes again
};
