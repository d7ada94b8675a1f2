// The inventory in memory: its files, and which of two texts counts.

#include "transfer/Inventory.h"

const SInventoryEntry* CInventory::Find(std::string_view path) const {
  const auto found = m_mapFiles.find(path);
  return found == m_mapFiles.end() ? nullptr : &found->second;
}

std::string CInventory::Set(const std::string& path, const SInventoryEntry& entry) {
  if (std::string why = WhyNoPath(path); !why.empty()) return why;
  if (entry.m_bMixed && entry.m_bDigest) return "it has a digest of bytes of no one version";
  const std::int64_t blocks = entry.m_bDigest ? DigestBlocks(entry.m_facts.m_llSize) : 0;
  if (static_cast<std::int64_t>(entry.m_digest.m_vecBlocks.size()) != blocks) {
    return "there are not as many digests as blocks";
  }
  if (m_mapFiles.size() >= kMostInventoryFiles && Find(path) == nullptr) {
    return "there are too many files";
  }
  m_mapFiles[path] = entry;
  return "";
}

void CInventory::MergeFrom(const CInventory& theirs,
                           const std::function<bool(const std::string&)>& isMine) {
  for (const auto& [path, entry] : theirs.m_mapFiles) {
    if (!isMine(path)) Set(path, entry);
  }
}

std::string WhoIsSending(const SInventoryHead& head) {
  return "it is on its way from " + head.m_strBy + ", last heard of at " +
         InventoryTime(head.m_llAlive);
}

SInventoryChoice ChooseInventory(std::string_view first, std::string_view other) {
  SInventoryChoice choice;
  CInventory another;
  const bool isFirstWhole = choice.m_inventory.Parse(first).empty();
  const bool isOtherWhole = another.Parse(other).empty();
  choice.m_bFound = isFirstWhole || isOtherWhole;
  const bool isOtherNewer =
      isOtherWhole &&
      (!isFirstWhole || another.m_head.m_llGeneration > choice.m_inventory.m_head.m_llGeneration);
  if (isOtherNewer) choice.m_inventory = std::move(another);
  if (choice.m_bFound) choice.m_strPlace = isOtherNewer ? kOtherInventoryName : kInventoryName;
  choice.m_strNextPlace = isOtherNewer ? kInventoryName : kOtherInventoryName;
  return choice;
}
