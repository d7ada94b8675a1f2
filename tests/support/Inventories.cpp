// Inventories as a put leaves them.

#include "support/Inventories.h"

#include "support/TestSystem.h"

SInventoryEntry EntryOf(const std::string& path) {
  SInventoryEntry entry;
  ReadFileFacts(path, entry.m_facts);
  entry.m_bDigest = CFileDigest().Finish(entry.m_facts.m_llSize, ReadsFile(path), entry.m_digest);
  return entry;
}

CInventory InventoryOf(const std::string& directory, const std::vector<std::string>& paths) {
  CInventory inventory;
  inventory.m_head = {1, true, "run-1", "ada@mill", 1772978711};
  for (const std::string& path : paths) inventory.Set(path, EntryOf(directory + path));
  return inventory;
}
