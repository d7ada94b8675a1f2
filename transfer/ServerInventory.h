#pragma once

#include <map>
#include <string>
#include <vector>

#include "transfer/Inventory.h"
#include "transfer/Transfer.h"

/// The inventory of one project at the server.
class CServerInventory {
 public:
  /// @param project its full name at the server
  CServerInventory(const STransferTools& tools, std::string project);

  /// Reads both places. What cannot be read leaves the newest one unknown, and
  /// nothing must be written then.
  /// @return 1 also when there is none
  int Read();

  bool IsFound() const { return m_choice.m_bFound; }
  const CInventory& Newest() const { return m_choice.m_inventory; }

  /// Writes the next generation; the newest one that was read stays until
  /// this one is whole.
  int Write(CInventory inventory);

  /// Full name of the place that was written last; "" when none was.
  const std::string& LastWritten() const { return m_strLastWritten; }

 private:
  int ReadPlaces();
  int ReadPlace(const std::string& name, std::string& text);
  int WriteOnce(CInventory& inventory);
  std::string Place(const std::string& name) const { return m_strProject + "\\" + name; }

  const STransferTools m_tools;
  const std::string m_strProject;
  SInventoryChoice m_choice;
  std::string m_strLastWritten;
};

/// The name of an item's project, and its own below it, "/" between the parts.
std::string ProjectOfItem(const STransferItem& item);
std::string PathOfItem(const STransferItem& item);

/// The inventories of all projects that one put sends to.
class CPutInventories {
 public:
  /// @param directory of all projects, as the server spells it
  CPutInventories(const STransferTools& tools, const std::string& directory,
                  const std::vector<STransferItem>& items);

  /// Reads the former ones. @return "" or why not, in words
  std::string Read();

  /// Says what is going to be sent, before any of it is.
  /// @return "" or why that could not be written
  std::string WritePlanned();

  /// Says what was sent.
  /// @param all everything that was meant to be sent has been
  std::string WriteComplete(bool all);

  const std::string& LastWritten() const { return m_strLastWritten; }

 private:
  struct SProject {
    CServerInventory m_server;
    CInventory m_mine;
  };
  std::string Written(SProject& project, int result);

  const std::vector<STransferItem>& m_items;
  std::map<std::string, SProject> m_mapProjects;
  std::string m_strRun;
  std::string m_strLastWritten;
};
