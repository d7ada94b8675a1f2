// Download, its parts: what lies here of a file until it is whole. Whatever
// changes files goes by an open directory, so that nothing that is put in the
// way of it leads elsewhere.

#include <filesystem>
#include <utility>

#include "platform/KQFile.h"
#include "platform/PathBytes.h"
#include "transfer/Download.h"
#include "transfer/Inventory.h"

namespace fs = std::filesystem;

namespace {

constexpr int kMostKept = 10;

const char* const kManyKept = "too many copies of it have been kept here";

}  // namespace

// -1 for anything that is no file of its own.
std::int64_t CDownload::PartSize(const STransferItem& item) const {
  if (!m_begun.contains(&item)) return -1;
  std::error_code error;
  const SFileLook look = LookAtFile(PartPath(item), error, false);
  return look.m_bRegular ? look.m_llSize : -1;
}

CDownload::SPart CDownload::LookAtPart(const STransferItem& item) {
  SPart part;
  part.m_place = PlaceOf(m_strInto, item);
  part.m_pDirectory = m_directories.Open(part.m_place.m_strBelow);
  part.m_bWhole =
      part.m_pDirectory != nullptr &&
      part.m_pDirectory->QueryFile(part.m_place.m_strPart, part.m_look) == ESystemError::kNone &&
      part.m_look.m_bRegular && part.m_look.m_llSize == item.m_llSize;
  return part;
}

void CDownload::RemovePart(const STransferItem& item) {
  const STargetPlace place = PlaceOf(m_strInto, item);
  const auto directory = m_directories.Open(place.m_strBelow);
  if (directory != nullptr) directory->RemoveFile(place.m_strPart);
}

// Makes the directories, and sees to it that nothing leads out of the target
// directory. Returns why the item cannot be fetched.
std::string CDownload::Prepare(const STransferItem& item) {
  const std::string below = PlaceOf(m_strInto, item).m_strBelow;
  ESystemError why = ESystemError::kNone;
  if (m_directories.Open(below, &why) != nullptr) return "";
  fs::path directory = PathOf(m_strInto);
  std::error_code error;
  for (const fs::path& component : PathOf(below)) {
    directory /= component;
    if (fs::is_symlink(fs::symlink_status(directory, error))) {
      return BytesOf(directory) + " is a symbolic link";
    }
  }
  return BytesOf(directory) + ": " + WordsFor(why);
}

// Whatever else lies in the part's place goes. A directory that was removed
// meanwhile is made again.
CSession::STargetFile CDownload::OpenPart(const STransferItem& item) {
  const STargetPlace place = PlaceOf(m_strInto, item);
  CSession::STargetFile target;
  std::unique_ptr<ISystemFile> file;
  ESystemError error = ESystemError::kNotFound;
  for (int i = 0; i < 2 && error == ESystemError::kNotFound; ++i) {
    if (i > 0) m_targets.Forget();
    const auto directory = m_targets.Open(place.m_strBelow);
    if (directory == nullptr) return target;
    const auto make = [&] {
      return directory->OpenFile(place.m_strPart, EOpenMode::kCreateNew, file);
    };
    error = make();
    SFileLook look;
    if (error == ESystemError::kExists) {
      error = directory->QueryFile(place.m_strPart, look);
      if (error != ESystemError::kNone) continue;
      if (look.m_bRegular && look.m_llSize <= item.m_llSize) {
        target.m_llHave = look.m_llSize;
        directory->OpenFile(place.m_strPart, EOpenMode::kUpdate, file);
        continue;
      }
      directory->RemoveFile(place.m_strPart);
      error = make();
    }
    target.m_remove = [directory, name = place.m_strPart] { directory->RemoveFile(name); };
  }
  if (file != nullptr) target.m_pFile = std::make_shared<CFileHandle>(std::move(file));
  return target;
}

// The time is that of the inventory before anybody sees the file. Its mode may
// forbid to write, which would be in the way of a get that goes on.
void CDownload::GiveName(STransferItem& item, const SPart& part) const {
  ISystemDirectory& directory = *part.m_pDirectory;
  const STargetPlace& place = part.m_place;
  const SInventoryEntry* const entry = item.m_pEntry.get();
  if (entry != nullptr) directory.SetTime(place.m_strPart, entry->m_facts.m_llTime);
  ESystemError error = directory.RenameFile(place.m_strPart, place.m_strName, m_bOverwrite);
  if (error == ESystemError::kExists) {
    if (!PutAside(item, part)) return;
    error = directory.RenameFile(place.m_strPart, place.m_strName, true);
  }
  item.m_bDone = error == ESystemError::kNone;
  if (!item.m_bDone) {
    item.m_strWhy = WordsFor(error);
  } else if (entry != nullptr && entry->m_facts.m_nMode != part.m_look.m_nMode) {
    directory.SetMode(place.m_strName, entry->m_facts.m_nMode);
  }
}

// Keeps a file that lies in the item's place under another name.
bool CDownload::PutAside(STransferItem& item, const SPart& part) {
  ISystemDirectory& directory = *part.m_pDirectory;
  const std::string& name = part.m_place.m_strName;
  SFileLook look;
  directory.QueryFile(name, look);
  if (!look.m_bRegular) return true;
  std::string kept = name;
  ESystemError error = ESystemError::kExists;
  for (int i = 0; i < kMostKept && error == ESystemError::kExists; ++i) {
    kept += "~";
    error = directory.RenameFile(name, kept, false);
  }
  if (error == ESystemError::kNone) return true;
  item.m_strWhy = error == ESystemError::kExists ? kManyKept : WordsFor(error);
  return false;
}
