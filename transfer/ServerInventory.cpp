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

int CServerInventory::ReadPlaces() {
  std::string first, other;
  int result = ReadPlace(kInventoryName, kMostInventoryBytes, first);
  if (result == RESULT_OK) {
    result = ReadPlace(kOtherInventoryName, kMostInventoryBytes, other);
  }
  if (result == RESULT_OK) m_choice = ChooseInventory(first, other);
  return result;
}

// A name that cannot be asked about is read right away; then none is none.
int CServerInventory::ReadPlace(const std::string& own, std::size_t most, std::string& text) {
  const std::string name = Place(own);
  text.clear();
  if (IsAskable(name)) {
    std::vector<std::int64_t> sizes;
    const int result = m_tools.m_session.AskSizes({name}, sizes);
    if (result != RESULT_OK || sizes.front() == 0) return result;
    if (sizes.front() < 0 || sizes.front() > static_cast<std::int64_t>(most)) {
      return RESULT_OK;  // none that could be whole
    }
  }
  const int result = m_tools.m_session.ReadFile(name, [&](const char* data, std::size_t size) {
    if (text.size() + size > most) return false;
    text.append(data, size);
    return true;
  });
  return !IsAskable(name) && result == ERROR_CODE_SERVER_OPENFILE ? static_cast<int>(RESULT_OK)
                                                                  : result;
}

int CServerInventory::ReadNote(CDamageNote& note) {
  std::string text;
  const int result =
      Insist(m_tools, [&] { return ReadPlace(kDamageNoteName, kMostDamageBytes, text); });
  if (result == RESULT_OK) note.Parse(text);
  return result;
}

int CServerInventory::WriteNote(const CDamageNote& note) {
  const std::string text = note.GetFiles().empty() ? "" : note.Text();
  return Insist(m_tools, [&] { return m_tools.m_session.WriteText(Place(kDamageNoteName), text); });
}

// A complete one ends in the first place, where others look for it. The other
// place is emptied then: whoever asks for the sizes need not read it.
int CServerInventory::Write(CInventory inventory) {
  for (bool first = false; !first;) {
    first = !inventory.m_head.m_bComplete || m_choice.m_strNextPlace == kInventoryName;
    const int result = Insist(m_tools, [&] { return WriteOnce(inventory); });
    if (result != RESULT_OK) return result;
  }
  if (inventory.m_head.m_bComplete) {
    Insist(m_tools, [&] { return m_tools.m_session.EmptyFile(Place(kOtherInventoryName)); });
  }
  return RESULT_OK;
}

int CServerInventory::WriteOnce(CInventory& inventory) {
  inventory.m_head.m_llGeneration = m_choice.m_inventory.m_head.m_llGeneration + 1;
  inventory.m_head.m_llAlive = NowSeconds();
  const std::string place = m_choice.m_strNextPlace;
  m_strLastWritten = Place(place);
  const int result = m_tools.m_session.WriteText(m_strLastWritten, inventory.Text());
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
