// Inventories and notes: whatever the text, none that is taken leads
// out of the project, and it is written so that it is read again.
//
// Input: a byte whose lowest bit says to seal the rest; then the text.

#include "transfer/Inventory.h"

#include "Fuzz.h"
#include "transfer/DamageNote.h"
#include "transfer/SealedText.h"
#include "transfer/SendingNote.h"

namespace {

void CheckPath(const std::string& path) {
  const std::filesystem::path inside = std::filesystem::path("/p/" + path).lexically_normal();
  Require(inside.string().compare(0, 3, "/p/") == 0 && inside.string().size() > 3);
  Require(path.find('\0') == std::string::npos && path.size() <= kLongestProjectPath);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CFuzzInput input(data, size);
  const bool seal = input.TakeByte() % 2 == 1;
  const std::string text = seal ? Seal(input.Rest()) : input.Rest();
  CInventory inventory, again;
  if (inventory.Parse(text).empty()) {
    for (const auto& [path, entry] : inventory.GetFiles()) CheckPath(path);
    Require(again.Parse(inventory.Text()).empty() && again.Text() == inventory.Text());
    Require(again.GetFiles().size() == inventory.GetFiles().size());
    Require(ChooseInventory(text, "").m_strNextPlace == kOtherInventoryName);
  }
  CDamageNote note, sameNote;
  if (note.Parse(text).empty()) {
    for (const auto& [path, blocks] : note.GetFiles()) CheckPath(path);
    Require(sameNote.Parse(note.Text()).empty() && sameNote.GetFiles() == note.GetFiles());
  }
  for (const auto& [slot, record] : ParseSendingSlots(text)) {
    if (record.m_strRun.empty()) continue;
    const auto same = ParseSendingSlots(SendingSlot(record));
    Require(slot < kSendingSlots && same.at(0).m_strRun == record.m_strRun);
  }
  return 0;
}
