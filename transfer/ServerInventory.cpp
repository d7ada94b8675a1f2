// Inventories at the server: read before a transfer, written around a put.
//
// They are ordinary files of the project for the server, moved by the same
// messages as all others, from and to memory.

#include "transfer/ServerInventory.h"

#include <chrono>
#include <utility>
#include <vector>

#include "protocol/ResultCodes.h"
#include "transfer/Insist.h"
#include "transfer/Names.h"
#include "transfer/ProjectClient.h"
#include "transfer/Session.h"

namespace {

constexpr std::int64_t kUnknown = INT64_MIN;  // a size that was not asked for

std::int64_t NowSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace

CServerInventory::CServerInventory(const STransferTools& tools, std::string project)
    : m_tools(tools), m_strProject(std::move(project)) {}

int CServerInventory::Read() {
  return Insist(m_tools, [this] { return ReadPlaces(); });
}

// All sizes are asked for at once, that of the note as well.
int CServerInventory::ReadPlaces() {
  const std::vector<std::string> names = Places();
  std::vector<std::int64_t> sizes(names.size(), kUnknown);
  std::string first, other;
  int result = IsAskable(m_strProject) ? m_tools.m_session.AskSizes(names, sizes) : RESULT_OK;
  if (result == RESULT_OK) result = ReadPlace(names[0], sizes[0], kMostInventoryBytes, first);
  if (result == RESULT_OK) result = ReadPlace(names[1], sizes[1], kMostInventoryBytes, other);
  if (result != RESULT_OK) return result;
  m_choice = ChooseInventory(first, other);
  m_llNoteBytes = sizes[2];
  return RESULT_OK;
}

std::vector<std::string> CServerInventory::Places() const {
  return {Place(kInventoryName), Place(kOtherInventoryName), Place(kDamageNoteName)};
}

std::vector<std::string> CServerInventory::Asked() const {
  return IsAskable(m_strProject) ? Places() : std::vector<std::string>();
}

// A name that cannot be asked about is read right away; then none is none.
int CServerInventory::ReadPlace(const std::string& name, std::int64_t size, std::size_t most,
                                std::string& text) {
  text.clear();
  const bool canBeWhole = size > 0 && size <= static_cast<std::int64_t>(most);
  if (size != kUnknown && !canBeWhole) return RESULT_OK;
  const int result = m_tools.m_session.ReadFile(name, [&](const char* data, std::size_t bytes) {
    if (text.size() + bytes > most) return false;
    text.append(data, bytes);
    return true;
  });
  return size == kUnknown && result == ERROR_CODE_SERVER_OPENFILE ? static_cast<int>(RESULT_OK)
                                                                  : result;
}

int CServerInventory::ReadNote(CDamageNote& note) {
  std::string text;
  const int result = Insist(m_tools, [&] {
    return ReadPlace(Place(kDamageNoteName), m_llNoteBytes, kMostDamageBytes, text);
  });
  if (result == RESULT_OK) note.Parse(text);
  return result;
}

int CServerInventory::WriteNote(const CDamageNote& note) {
  const std::string text = note.GetFiles().empty() ? "" : note.Text();
  return Insist(m_tools, [&] { return m_tools.m_session.WriteText(Place(kDamageNoteName), text); });
}

// A complete one ends in the first place, where others look for it. The other
// place is emptied then: whoever asks for the sizes need not read it. Where that
// fails it holds an older one, so nobody waits for it.
int CServerInventory::Write(CInventory inventory) {
  for (bool first = false; !first;) {
    first = !inventory.m_head.m_bComplete || m_choice.m_strNextPlace == kInventoryName;
    const int result = WriteNext(inventory);
    if (result != RESULT_OK) return result;
  }
  if (inventory.m_head.m_bComplete) {
    m_tools.m_session.WriteLater(Place(kOtherInventoryName), true, {});
  }
  return RESULT_OK;
}

int CServerInventory::WriteNext(CInventory& inventory) {
  inventory.m_head.m_llGeneration = m_choice.m_inventory.m_head.m_llGeneration + 1;
  inventory.m_head.m_llAlive = NowSeconds();
  const std::string text = inventory.Text();
  if (text.size() > kMostInventoryBytes) return 0;
  const std::string place = m_choice.m_strNextPlace;
  m_strLastWritten = Place(place);
  const int result =
      Insist(m_tools, [&] { return m_tools.m_session.WriteText(m_strLastWritten, text); });
  if (result != RESULT_OK) return result;
  m_choice.m_bFound = true;
  m_choice.m_inventory = inventory;
  m_choice.m_strPlace = place;
  m_choice.m_strNextPlace = place == kInventoryName ? kOtherInventoryName : kInventoryName;
  return RESULT_OK;
}

std::string ProjectOfItem(const STransferItem& item) {
  return item.m_strShown.substr(0, item.m_strShown.find('/'));
}

std::string PathOfItem(const STransferItem& item) {
  return item.m_strShown.substr(item.m_strShown.find('/') + 1);
}
