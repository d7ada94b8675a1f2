#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "transfer/DamageNote.h"
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

  /// What Read asks for the sizes of.
  std::vector<std::string> Asked() const;

  bool IsFound() const { return m_choice.m_bFound; }
  const CInventory& Newest() const { return m_choice.m_inventory; }

  /// Writes the next generation; the newest one that was read stays until
  /// this one is whole.
  /// @return also 0: it could not be read again, and was not written
  int Write(CInventory inventory);

  /// Reads what the server noted of damage, as it was when Read looked; none
  /// when it is not whole.
  int ReadNote(CDamageNote& note);

  /// Leaves this note instead, or none.
  int WriteNote(const CDamageNote& note);

  /// Full name of the place that was written last; "" when none was.
  const std::string& LastWritten() const { return m_strLastWritten; }

 private:
  std::vector<std::string> Places() const;
  int ReadPlaces();
  int ReadPlace(const std::string& name, std::int64_t size, std::size_t most, std::string& text);
  int WriteNext(CInventory& inventory);
  std::string Place(const std::string& name) const { return m_strProject + "\\" + name; }

  const STransferTools m_tools;
  const std::string m_strProject;
  SInventoryChoice m_choice;
  std::int64_t m_llNoteBytes = 0;  // of the note of damage, as Read found it
  std::string m_strLastWritten;
};

/// The name of an item's project, and its own below it, "/" between the parts.
std::string ProjectOfItem(const STransferItem& item);
std::string PathOfItem(const STransferItem& item);
